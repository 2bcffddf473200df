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
#include "host/plan/Preflight.h"
#include "host/report/LoadText.h"
#include "host/report/ProgressBar.h"

namespace host::cli {

namespace {

LoadPlan MakePlan(const std::vector<ImageFile>& images, const SessionRequest& target, LoadMode mode) {
  const PluginCuts cuts = PluginCutsUnder([&](std::string_view name) { return target.settings.Get(name); });
  LoadPlan plan = PlanLoad(images, target.device.map, cuts);
  // The plug-in compares MAIN flash, then CCFG, then SCFG; an image without MAIN flash gets no further.
  if (mode == LoadMode::Verify && plan.Has(Region::UserRecord))
    throw InputError("the images hold only the user record of the CCFG, which cannot be verified by itself");
  return plan;
}

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
  return report.HasErrorMessages() ? kErrorsReported : kDone;
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
  const bool isVerify = load.mode == LoadMode::Verify;
  Files files = FilesOf(load.target);
  std::vector<ImageFile> images;
  for (const std::string& argument : load.images) {
    images.push_back(ReadImage(argument));
    files.Reads("image", images.back().name);
  }
  files.RequireDistinct();
  SessionRequest request = Request(load.target, isVerify ? MissingChip::Refuse : MissingChip::Make);
  if (isVerify) request.settings.Set("ImageVerificationSetting", "1");
  const LoadPlan plan = MakePlan(images, request, load.mode);

  Session session(std::move(request));
  if (!isVerify && !load.isDryRun) session.RequireSavableChip();
  std::vector<std::string> warnings;
  if (!isVerify) warnings = WarnBeforeLoad(plan, session.device, session.settings);
  if (load.isStrict && !warnings.empty())
    throw InputError("refused because of --strict: " + warnings.front());
  if (!load.target.trace.empty()) session.TraceTo(load.target.trace);

  output.Say(PlanText(plan, session.device, session.settings, images, load.mode));
  output.Say(fmt::format("{:<10}{}\n\n", "Chip", ChipText(load.target, session)));
  for (const std::string& warning : warnings) output.Complain("warning: " + warning);
  std::optional<ProgressBar> bar;
  if (!load.noProgress && !output.IsJson() && isatty(STDERR_FILENO) != 0) bar.emplace(stderr);
  const ChipPicture before = session.View()->Picture();
  LoadReport report = [&] {
    const Interruptible interruptible(session);
    return LoadSession(session.library, session.services, *session.probe, session.device.name)
        .Run(plan, session.device.map, load.mode, TerminalSink(output, bar ? &*bar : nullptr));
  }();
  const ChipPicture after = session.View()->Picture();
  if (!isVerify) {
    JudgeByContents(report, plan, session.device.map, before, after);
    try {
      // Also after a failure: what happened to the chip has happened.
      if (!load.isDryRun) session.SaveChip();
    } catch (const std::exception& error) {
      if (!report.error) report.error = error.what();
    }
  }

  const int exitCode = ExitCodeOf(report, session);
  const std::vector<SectorState> sectors = ClassifySectors(plan, session.device.map, before, after);
  const LoadStory story{session.device,
                        session.settings,
                        images,
                        warnings,
                        report,
                        sectors,
                        before,
                        after,
                        session.probe->RoundTrips(),
                        load.isDryRun};
  output.document = ToJson(story, exitCode);
  output.Say(SummaryText(story));
  if (report.error) output.Complain(*report.error);
  return output.Finish(isVerify ? "verify" : "load", exitCode, report.error.value_or(""));
}

void AddLoad(CLI::App& program, Job& chosen) {
  AddVerb<LoadOptions>(
      program, chosen, "load", "Program images into a chip and verify them",
      [](CLI::App& verb, LoadOptions& load) {
        AddImageOptions(verb, load);
        verb.add_flag("--strict", load.isStrict, "Refuse the load when there is anything to warn of");
        verb.add_flag("--dry-run", load.isDryRun,
                      "Do all of it to a copy of the chip and say what would change");
      },
      RunLoad);
}

}  // namespace host::cli
