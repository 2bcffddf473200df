#include "host/cli/LoadVerb.h"

#include <fmt/format.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <optional>

#include "host/cli/ExitCode.h"
#include "host/cli/Interrupt.h"
#include "host/cli/Target.h"
#include "host/cli/Verb.h"
#include "host/device/InputError.h"
#include "host/load/LoadSession.h"
#include "host/plan/ImagePlan.h"
#include "host/plan/Preflight.h"
#include "host/report/LoadText.h"
#include "host/report/ProgressBar.h"

namespace host::cli {

namespace {

// Messages as they come, and on a terminal the progress bar in between.
LoadEventSink TerminalSink(Output& output, ProgressBar* bar) {
  return [&output, bar](const LoadEvent& event) {
    if (bar != nullptr) bar->Take(event);
    if (const auto* message = std::get_if<LoadMessage>(&event)) output.Show(*message);
  };
}

int ExitCodeOf(const LoadReport& report, const Session& session) {
  if (session.IsCancelled()) return kInterrupted;
  if (report.error) return report.mode == LoadMode::Verify ? kDiffers : kFailed;
  return report.HasErrorMessages() || session.TraceLoss() ? kErrorsReported : kDone;
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

}  // namespace

void AddImageOptions(CLI::App& verb, LoadOptions& load) {
  verb.add_option("image", load.images, "ELF, Intel HEX, S-record, or a raw binary with its @ADDRESS")
      ->required()
      ->type_name("IMAGE[@ADDRESS]");
  AddTargetOptions(verb, load.target);
  verb.add_flag("--no-progress", load.noProgress, "No progress bar, even on a terminal");
}

int RunLoad(const LoadOptions& load, Output& output) {
  Files files = FilesOf(load.target);
  std::vector<ImageFile> images;
  for (const std::string& argument : load.images) {
    images.push_back(ReadImage(argument));
    files.Reads("image", images.back().name);
  }
  files.RequireDistinct();
  SessionRequest request = Request(load.target, load.verifies ? MissingChip::Refuse : MissingChip::Make);
  if (load.verifies) request.settings.Set("ImageVerificationSetting", "1");
  const LoadPlan plan = PlanLoad(images, request.device.map, PluginCutsUnder(request.settings));
  const LoadMode mode = ModeOf(request.settings);

  Session session(std::move(request));
  const bool keepsChip = mode == LoadMode::Program && !load.isDryRun;
  if (keepsChip) session.RequireSavableChip();
  const Preflight preflight =
      Inspect(plan, session.device, session.settings,
              {.allowOutside = load.allowOutside, .chipIsDescribed = session.View() != nullptr});
  RequireUnopposed(preflight, load.isStrict, output);
  if (!load.target.trace.empty()) session.TraceTo(load.target.trace, kProgram);

  output.Say(PlanText(plan, session.device, session.settings, images, mode));
  output.Say(fmt::format("{:<10}{}\n\n", "Chip", ChipText(load.target, session)));
  for (const std::string& warning : preflight.warnings) output.Complain("warning: " + warning);

  std::optional<ProgressBar> bar;
  if (!load.noProgress && !output.IsJson() && isatty(STDERR_FILENO) != 0) bar.emplace(stderr);
  const ChipPicture before = session.View()->Picture();
  LoadReport report = [&] {
    const Interruptible interruptible(session);
    return LoadSession(session.library, session.services, *session.probe, session.device.name)
        .Run(plan, session.device.map, mode, TerminalSink(output, bar ? &*bar : nullptr));
  }();
  const ChipPicture after = session.View()->Picture();
  if (mode == LoadMode::Program) {
    JudgeByContents(report, plan, session.device.map, before, after);
    try {
      // Also after a failure: what happened to the chip has happened.
      if (keepsChip) session.SaveChip();
    } catch (const std::exception& error) {
      if (!report.error) report.error = error.what();
    }
  }

  const int exitCode = ExitCodeOf(report, session);
  const std::vector<SectorState> sectors = ClassifySectors(plan, session.device.map, before, after);
  const LoadStory story{session.device, session.settings, images, preflight.warnings,          report,
                        sectors,        before,           after,  session.probe->RoundTrips(), load.isDryRun};
  output.document = ToJson(story, exitCode);
  output.Say(SummaryText(story));
  if (report.error) output.Complain(*report.error);
  if (const auto loss = session.TraceLoss()) output.Complain(*loss);
  return output.Finish(load.verifies ? "verify" : "load", exitCode, report.error.value_or(""));
}

void AddLoad(CLI::App& program, Job& chosen) {
  AddVerb<LoadOptions>(
      program, chosen, "load", "Program images into a chip and verify them",
      [](CLI::App& verb, LoadOptions& load) {
        AddImageOptions(verb, load);
        verb.add_flag("--strict", load.isStrict, "Refuse the load when there is anything to warn of");
        verb.add_flag("--allow-outside", load.allowOutside,
                      "Hand on bytes that lie in no memory of the device, as RAM data");
        verb.add_flag("--dry-run", load.isDryRun,
                      "Do all of it to a copy of the chip and say what would change");
      },
      RunLoad);
}

}  // namespace host::cli
