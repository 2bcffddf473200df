#include "host/cli/LoadVerb.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>
#include <optional>

#include "host/cli/ExitCode.h"
#include "host/cli/Interrupt.h"
#include "host/cli/Target.h"
#include "host/cli/Verb.h"
#include "host/device/InputError.h"
#include "host/load/Comparison.h"
#include "host/load/FaultFinder.h"
#include "host/plan/ImagePlan.h"
#include "host/plan/Preflight.h"
#include "host/report/FailureText.h"
#include "host/report/LoadText.h"
#include "host/report/ProgressBar.h"

namespace host::cli {

namespace {

// Reads what the images' arguments name, after seeing to it that no output is one of them.
std::vector<ImageFile> ReadImages(const LoadOptions& load) {
  Files files = FilesOf(load.target);
  std::vector<ImageFile> images;
  for (const std::string& argument : load.images) {
    images.push_back(ReadImage(argument));
    files.Reads("image", images.back().name);
  }
  files.RequireDistinct();
  return images;
}

// All that is wrong is said, each on its line; the first of it is the error.
void RequireUnopposed(const Preflight& preflight, bool isStrict, Output& output) {
  const std::vector<std::string>& refusals = preflight.refusals;
  if (refusals.empty() && isStrict && !preflight.warnings.empty())
    throw InputError("refused because of --strict: " + preflight.warnings.front());
  if (refusals.empty()) return;
  for (auto other = refusals.begin() + 1; other != refusals.end(); ++other) output.Complain(*other);
  throw InputError(refusals.front());
}

// Messages as they come, and on a terminal the progress bar in between.
LoadEventSink TerminalSink(Output& output, ProgressBar* bar) {
  return [&output, bar](const LoadEvent& event) {
    if (bar != nullptr) bar->Take(event);
    if (const auto* message = std::get_if<LoadMessage>(&event)) output.Show(*message);
  };
}

// Whether the chip holds the images already; says what is known of it.
bool IsThere(Session& session, const LoadPlan& plan, Output& output) {
  const AlreadyOnChip found = IsAlreadyOnChip(session.Target(), plan);
  for (const std::string& line : found.notCompared) output.Say(fmt::format("Not compared: {}\n", line));
  output.document["already_on_chip"] = found.isEqual;
  if (found.isEqual) output.Say("Already on the chip: nothing was erased, nothing was programmed\n");
  return found.isEqual;
}

// What a round trip takes is its adapter's: a millisecond at a slow one, a seventh of that at a fast one.
std::string SlowProbeText(std::string_view probe, const LoadPlan& plan) {
  if (!probe.starts_with("openocd")) return "";
  std::size_t words = 0;
  for (const ImageBlock& block : plan.blocks) words += (block.data.size() + 3) / 4;
  return fmt::format("Expected  up to {} s: OpenOCD moves one word a round trip\n", words / 1000 + 1);
}

// The load itself, and what can be found out about a failure.
void Run(const LoadOptions& load, Session& session, const LoadPlan& plan, LoadRecord& record,
         Output& output) {
  std::optional<ProgressBar> bar;
  if (!load.noProgress && !output.IsJson()) bar = ProgressBar::For(stderr);
  const std::optional<ChipPicture> before =
      session.View() != nullptr ? std::optional(session.View()->Picture()) : std::nullopt;
  LoadSession(session.Target()).Run(plan, record, TerminalSink(output, bar ? &*bar : nullptr));
  record.roundTrips = session.probe->RoundTrips();
  if (!session.IsCancelled())
    FaultFinder(session.Target())
        .Explain(plan, record, load.findsAll ? FaultSearch::All : FaultSearch::First);
  if (before && record.mode == LoadMode::Program)
    AddContents(record, plan, session.device.map, *before, session.View()->Picture());
}

// Also after a failure: what happened to the chip has happened.
void Keep(Session& session, LoadRecord& record) {
  try {
    session.SaveChip();
  } catch (const std::exception& error) {
    if (!record.failure) record.failure = LoadFailure{.text = error.what()};
  }
}

int ExitCodeOf(const LoadRecord& record, const Session& session) {
  if (session.IsCancelled()) return kInterrupted;
  if (record.failure) return record.mode == LoadMode::Verify && record.Differs() ? kDiffers : kFailed;
  return record.HasErrorMessages() || session.TraceLoss() ? kErrorsReported : kDone;
}

int Tell(const LoadOptions& load, const Session& session, const LoadRecord& record, Output& output) {
  output.document.update(ToJson(record));
  output.Say(SummaryText(record));
  if (record.failure) {
    output.Complain(record.failure->text);
    if (!output.IsJson()) output.Explain(FailureText(record));
  }
  if (const auto loss = session.TraceLoss()) output.Complain(*loss);
  return output.Finish(load.verifies ? "verify" : "load", ExitCodeOf(record, session),
                       record.failure ? record.failure->text : "");
}

}  // namespace

void AddImageOptions(CLI::App& verb, LoadOptions& load) {
  verb.add_option("image", load.images, "ELF, Intel HEX, S-record, or a raw binary with its @ADDRESS")
      ->required()
      ->type_name("IMAGE[@ADDRESS]");
  AddTargetOptions(verb, load.target);
  verb.add_flag("--no-progress", load.noProgress, "No progress bar, even on a terminal");
}

int RunLoad(const LoadOptions& load, Output& output) {
  const std::vector<ImageFile> images = ReadImages(load);
  SessionRequest request = Request(load.target, load.verifies ? MissingChip::Refuse : MissingChip::Make);
  if (load.verifies) request.settings.Set("ImageVerificationSetting", "1");
  const LoadPlan plan = PlanLoad(images, request.device.map, PluginCutsUnder(request.settings));
  LoadRecord record = PlannedLoad(plan, images, request.device, request.settings);
  record.isDryRun = load.isDryRun;

  Session session(std::move(request));
  const bool keepsChip = record.mode == LoadMode::Program && !load.isDryRun;
  if (keepsChip) session.RequireSavableChip();
  if (load.isDryRun && session.View() == nullptr) throw InputError("--dry-run needs a simulated chip");
  const Preflight preflight =
      Inspect(plan, session.device, session.settings,
              {.allowOutside = load.allowOutside, .chipIsDescribed = session.View() != nullptr});
  RequireUnopposed(preflight, load.isStrict, output);
  record.warnings = preflight.warnings;
  if (!load.target.trace.empty()) session.TraceTo(load.target.trace, kProgram);

  output.Say(PlanText(record));
  output.Say(TargetLine(load.target, session) + SlowProbeText(load.target.probe, plan) + "\n");
  for (const std::string& warning : record.warnings) output.Complain("warning: " + warning);
  const Interruptible interruptible(session);
  if (load.ifDifferent && IsThere(session, plan, output)) return output.Finish("load", kDone);
  Run(load, session, plan, record, output);
  if (keepsChip) Keep(session, record);
  return Tell(load, session, record, output);
}

void AddLoad(CLI::App& program, Job& chosen) {
  AddVerb<LoadOptions>(
      program, chosen, "load", "Program images into a chip and verify them",
      [](CLI::App& verb, LoadOptions& load) {
        AddImageOptions(verb, load);
        verb.add_flag("--strict", load.isStrict, "Refuse the load when there is anything to warn of");
        verb.add_flag("--if-different", load.ifDifferent,
                      "Compare first, and erase and program nothing that is on the chip already");
        verb.add_flag("--allow-outside", load.allowOutside,
                      "Hand on bytes that lie in no memory of the device, as RAM data");
        verb.add_flag("--dry-run", load.isDryRun,
                      "Do all of it to a copy of the chip and say what would change");
      },
      RunLoad);
}

}  // namespace host::cli
