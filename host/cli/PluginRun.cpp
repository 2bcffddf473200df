#include "host/cli/PluginRun.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/cli/ExitCode.h"
#include "host/cli/Interrupt.h"
#include "host/cli/Target.h"
#include "host/device/InputError.h"

namespace host::cli {

namespace {

int ExitCodeOf(const PluginAnswer& answer, const Session& session) {
  if (session.IsCancelled()) return kInterrupted;
  if (answer.error) return answer.differs ? kDiffers : kFailed;
  if (session.TraceLoss()) return kErrorsReported;
  const bool hasErrors = std::any_of(answer.messages.begin(), answer.messages.end(),
                                     [](const LoadMessage& message) { return message.isError; });
  return hasErrors ? kErrorsReported : kDone;
}

void Show(Output& output, const Session& session, const PluginAnswer& answer) {
  for (const auto& [title, text] : answer.lines) output.Say(fmt::format("{:<22}{}\n", title, text));
  if (answer.error) output.Complain(*answer.error);
  if (const auto loss = session.TraceLoss()) output.Complain(*loss);

  Json& document = output.document;
  document["device"] = session.device.name;
  for (const auto& [title, text] : answer.lines) document["answer"][title] = text;
  document["messages"] = ToJson(answer.messages);
  document["elapsed_ms"] = static_cast<double>(session.probe->ElapsedNs()) / 1e6;
  document["host_calls"] = session.services.CallCount();
}

// Also after a failure: what happened to the chip has happened.
void Keep(Session& session, PluginAnswer& answer) {
  try {
    session.SaveChip();
  } catch (const std::exception& error) {
    if (!answer.error) answer.error = error.what();
  }
}

}  // namespace

bool PluginAnswer::Said(std::string_view text) const {
  return std::any_of(messages.begin(), messages.end(),
                     [&](const LoadMessage& message) { return message.text == text; });
}

int RunPlugin(Output& output, std::string_view verb, const TargetOptions& options, ChipAfterwards afterwards,
              const PluginAction& action) {
  FilesOf(options).RequireDistinct();
  Session session(Request(options, MissingChip::Refuse));
  if (afterwards == ChipAfterwards::Kept) session.RequireSavableChip();
  if (!options.trace.empty()) session.TraceTo(options.trace, kProgram);
  const std::string chip = ChipText(options, session);
  if (!chip.empty()) output.Say(fmt::format("{:<22}{}\n", "Chip", chip));

  PluginAnswer answer;
  session.services.onMessage = [&](bool isError, const std::string& text) {
    answer.messages.push_back({isError, text});
    output.Show(answer.messages.back());
  };
  {
    const Interruptible interruptible(session);
    try {
      PluginDevice device = session.MakeDevice();
      (void)device.Initialize();
      action(session, device, answer);
    } catch (const InputError&) {
      throw;
    } catch (const std::exception& error) {
      answer.error = error.what();
    }
  }
  if (session.IsCancelled()) answer.error = "interrupted";
  if (afterwards == ChipAfterwards::Kept) Keep(session, answer);
  Show(output, session, answer);
  return output.Finish(verb, ExitCodeOf(answer, session), answer.error.value_or(""));
}

int RunOperation(Output& output, std::string_view verb, const TargetOptions& options,
                 const std::string& operation, const std::function<void(Session&, PluginAnswer&)>& check) {
  return RunPlugin(output, verb, options, ChipAfterwards::Kept,
                   [&](Session& session, PluginDevice& device, PluginAnswer& answer) {
                     device.PerformOperation(operation);
                     if (check) check(session, answer);
                   });
}

}  // namespace host::cli
