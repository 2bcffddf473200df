#include "host/cli/LoadVerb.h"

#include <fmt/format.h>
#include <unistd.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <memory>
#include <optional>

#include "host/cli/ExitCode.h"
#include "host/cli/Target.h"
#include "host/cli/Verbs.h"
#include "host/device/InputError.h"
#include "host/load/LoadSession.h"
#include "host/plan/ImagePlan.h"
#include "host/plan/Preflight.h"
#include "host/report/LoadText.h"
#include "host/report/ProgressBar.h"

namespace host::cli {

namespace {

// Messages as they come, and on a terminal the progress bar in between.
LoadEventSink TerminalSink(const Options& options, ProgressBar* bar) {
  return [&options, bar](const LoadEvent& event) {
    if (bar != nullptr) bar->Take(event);
    if (const auto* message = std::get_if<LoadMessage>(&event))
      if (!options.json || message->isError) PrintMessage(*message);
  };
}

int ExitCodeOf(const LoadReport& report) {
  if (report.error) return kFailed;
  return report.HasErrorMessages() ? kErrorsReported : kDone;
}

}  // namespace

void AddImageOptions(CLI::App& verb, Options& options, LoadOptions& load) {
  verb.add_option("image", load.images, "ELF, Intel HEX, S-record, or a raw binary with its @ADDRESS")
      ->required()
      ->type_name("IMAGE[@ADDRESS]");
  AddTargetOptions(verb, options);
  verb.add_flag("!--no-progress", options.progress, "No progress bar, even on a terminal");
}

int RunLoad(const Options& options, const LoadOptions& load) {
  Target target(options);
  if (load.mode == LoadMode::Verify) target.settings.Set("ImageVerificationSetting", "1");
  std::vector<ImageFile> images;
  for (const std::string& argument : load.images) images.push_back(ReadImage(argument));
  const LoadPlan plan = PlanLoad(images, target.device.map, PluginCutsUnder(target.settings));
  const auto [refusals, warnings] = Inspect(plan, target.device, target.settings, {.chipIsDescribed = true});
  if (!refusals.empty()) throw InputError(fmt::format("{}", fmt::join(refusals, "\ntovik-flash: ")));
  for (const std::string& warning : warnings) Complain("warning: " + warning);
  if (load.isStrict && !warnings.empty())
    throw InputError("refused because of --strict: " + warnings.front());
  if (!options.json) fmt::print("{}\n", PlanText(plan, target.device, target.settings, images, load.mode));

  std::optional<ProgressBar> bar;
  if (options.progress && !options.json && isatty(STDERR_FILENO) != 0) bar.emplace(stderr);
  const ChipPicture before = target.probe.Picture();
  LoadSession session(target.library, target.services, target.probe, target.device.name);
  LoadReport report =
      session.Run(plan, target.device.map, load.mode, TerminalSink(options, bar ? &*bar : nullptr));
  const ChipPicture after = target.probe.Picture();
  if (load.mode == LoadMode::Program) {
    JudgeByContents(report, plan, target.device.map, before, after);
    try {
      // Also after a failure: what happened to the chip has happened.
      if (!load.isDryRun) target.probe.Save();
    } catch (const std::exception& error) {
      if (!report.error) report.error = error.what();
    }
  }

  const int exitCode = ExitCodeOf(report);
  const std::vector<SectorState> sectors = ClassifySectors(plan, target.device.map, before, after);
  const LoadStory story{
      target.device, target.settings,           images,       warnings, report, sectors, before,
      after,         target.probe.RoundTrips(), load.isDryRun};
  if (options.json) {
    PrintJson(ToJson(story, exitCode));
  } else {
    fmt::print("{}", SummaryText(story));
  }
  if (report.error) Complain(*report.error);
  return exitCode;
}

void AddLoad(CLI::App& program, Options& options) {
  auto load = std::make_shared<LoadOptions>();
  CLI::App* verb = program.add_subcommand("load", "Program images into a chip and verify them");
  AddImageOptions(*verb, options, *load);
  verb->add_flag("--strict", load->isStrict, "Refuse the load when there is anything to warn of");
  verb->add_flag("--dry-run", load->isDryRun, "Do all of it to a copy of the chip and say what would change");
  verb->callback([&options, load] { options.run = [&options, load] { return RunLoad(options, *load); }; });
}

}  // namespace host::cli
