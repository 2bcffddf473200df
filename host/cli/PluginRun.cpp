#include "host/cli/PluginRun.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>

#include "host/cli/ExitCode.h"

namespace host::cli {

namespace {

int ExitCodeOf(const PluginAnswer& answer) {
  if (answer.error) return kFailed;
  const bool hasErrors = std::any_of(answer.messages.begin(), answer.messages.end(),
                                     [](const LoadMessage& message) { return message.isError; });
  return hasErrors ? kErrorsReported : kDone;
}

void Show(const Options& options, const Target& target, const PluginAnswer& answer, int exitCode) {
  if (options.json) {
    Json result = {{"exit_code", exitCode}, {"device", target.device.name}};
    for (const auto& [title, text] : answer.lines) result["answer"][title] = text;
    result["messages"] = ToJson(answer.messages);
    result["error"] = answer.error ? Json(*answer.error) : Json(nullptr);
    result["modelled_ms"] = static_cast<double>(target.probe.ElapsedNs()) / 1e6;
    result["host_calls"] = target.services.CallCount();
    PrintJson(result);
    return;
  }
  for (const auto& [title, text] : answer.lines) fmt::print("{:<22}{}\n", title, text);
  if (answer.error) Complain(*answer.error);
}

}  // namespace

bool PluginAnswer::Said(std::string_view text) const {
  return std::any_of(messages.begin(), messages.end(),
                     [&](const LoadMessage& message) { return message.text == text; });
}

int RunPlugin(const Options& options, Target& target, ChipAfterwards afterwards,
              const std::function<void(PluginDevice&, PluginAnswer&)>& action) {
  PluginAnswer answer;
  target.services.onMessage = [&](bool isError, const std::string& text) {
    answer.messages.push_back({isError, text});
    if (!options.json || isError) PrintMessage(answer.messages.back());
  };
  try {
    PluginDevice device(target.library, target.services, target.device.name);
    (void)device.Initialize();
    action(device, answer);
  } catch (const std::exception& error) {
    answer.error = error.what();
  }
  target.services.onMessage = nullptr;
  try {
    // Also after a failure: what happened to the chip has happened.
    if (afterwards == ChipAfterwards::Kept) target.probe.Save();
  } catch (const std::exception& error) {
    if (!answer.error) answer.error = error.what();
  }

  const int exitCode = ExitCodeOf(answer);
  Show(options, target, answer, exitCode);
  return exitCode;
}

int RunOperation(const Options& options, Target& target, const std::string& operation,
                 const std::function<void(PluginAnswer&)>& check) {
  return RunPlugin(options, target, ChipAfterwards::Kept, [&](PluginDevice& device, PluginAnswer& answer) {
    device.PerformOperation(operation);
    if (check) check(answer);
  });
}

}  // namespace host::cli
