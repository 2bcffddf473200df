#include "host/cli/LoadVerb.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <memory>
#include <optional>

#include "host/cli/ExitCode.h"
#include "host/cli/Target.h"
#include "host/cli/Verbs.h"
#include "host/device/InputError.h"
#include "host/load/FaultFinder.h"
#include "host/plan/Preflight.h"
#include "host/report/FailureText.h"
#include "host/report/LoadText.h"
#include "host/report/ProgressBar.h"

namespace host::cli {

namespace {

LoadPlan MakePlan(const std::vector<ImageFile>& images, const Target& target, LoadMode mode) {
  const PluginCuts cuts = PluginCutsUnder([&](std::string_view name) { return target.settings.Get(name); });
  LoadPlan plan = PlanLoad(images, target.device.map, cuts);
  // The plug-in compares MAIN flash, then CCFG, then SCFG; an image without MAIN flash gets no further.
  if (mode == LoadMode::Verify && plan.Has(Region::UserRecord))
    throw InputError("the images hold only the user record of the CCFG, which cannot be verified by itself");
  return plan;
}

// Messages as they come, and on a terminal the progress bar in between.
LoadEventSink TerminalSink(const Options& options, ProgressBar* bar) {
  return [&options, bar](const LoadEvent& event) {
    if (bar != nullptr) bar->Take(event);
    if (const auto* message = std::get_if<LoadMessage>(&event))
      if (!options.json || message->isError) PrintMessage(*message);
  };
}

int ExitCodeOf(const LoadRecord& record) {
  if (record.failure) return kFailed;
  return record.HasErrorMessages() ? kErrorsReported : kDone;
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
  const LoadPlan plan = MakePlan(images, target, load.mode);

  LoadRecord record = PlannedLoad(plan, images, target.device, target.settings);
  record.isDryRun = load.isDryRun;
  const bool isVerify = record.mode == LoadMode::Verify;
  if (!isVerify) record.warnings = WarnBeforeLoad(plan, target.device, target.settings);
  for (const std::string& warning : record.warnings) Complain("warning: " + warning);
  if (load.isStrict && !record.warnings.empty())
    throw InputError("refused because of --strict: " + record.warnings.front());
  if (!options.json) fmt::print("{}\n", PlanText(record));

  std::optional<ProgressBar> bar;
  if (options.progress && !options.json) bar = ProgressBar::For(stderr);
  const LoadTarget with{target.library, target.services, target.probe, target.device, target.settings};
  const ChipPicture before = target.probe.Picture();
  LoadSession(with).Run(plan, record, TerminalSink(options, bar ? &*bar : nullptr));
  record.roundTrips = target.probe.RoundTrips();
  FaultFinder(with).Explain(plan, record, load.findsAll ? FaultSearch::All : FaultSearch::First);
  if (!isVerify) {
    AddContents(record, plan, target.device.map, before, target.probe.Picture());
    try {
      // Also after a failure: what happened to the chip has happened.
      if (!load.isDryRun) target.probe.Save();
    } catch (const std::exception& error) {
      if (!record.failure) record.failure = LoadFailure{.text = error.what()};
    }
  }

  const int exitCode = ExitCodeOf(record);
  if (options.json) {
    Json document = ToJson(record);
    document["exit_code"] = exitCode;
    PrintJson(document);
  } else {
    fmt::print("{}", SummaryText(record));
  }
  if (record.failure) {
    Complain(record.failure->text);
    std::fflush(stdout);
    if (!options.json) fmt::print(stderr, "{}", FailureText(record));
  }
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
