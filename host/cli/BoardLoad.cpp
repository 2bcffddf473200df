#include "host/cli/BoardLoad.h"

#include <fmt/chrono.h>

#include <cstdint>
#include <ctime>
#include <nlohmann/json.hpp>
#include <optional>

#include "host/cli/Target.h"
#include "host/device/InputError.h"
#include "host/load/Comparison.h"
#include "host/load/FaultFinder.h"
#include "host/plan/ImagePlan.h"
#include "host/plan/Preflight.h"
#include "host/report/ChipContents.h"
#include "host/report/FailureText.h"
#include "host/report/LoadText.h"

namespace host::cli {

namespace {

// What a round trip takes is its adapter's: a millisecond at a slow one, a seventh of that at a fast one.
std::string SlowProbeText(std::string_view probe, const LoadPlan& plan) {
  if (!probe.starts_with("openocd")) return "";
  std::size_t words = 0;
  for (const ImageBlock& block : plan.blocks) words += (block.data.size() + 3) / 4;
  return fmt::format("Expected  up to {} s: OpenOCD moves one word a round trip\n", words / 1000 + 1);
}

// With the zone of this machine: "2026-11-23 13:08:05+0000".
std::string TimeNow() {
  return fmt::format("{:%Y-%m-%d %H:%M:%S%z}", fmt::localtime(std::time(nullptr)));
}

ExitCode CodeOf(const LoadRecord& record, const Session& session) {
  if (session.IsCancelled()) return kInterrupted;
  if (record.failure) return record.mode == LoadMode::Verify && record.Differs() ? kDiffers : kFailed;
  return record.HasErrorMessages() || session.TraceLoss() ? kErrorsReported : kDone;
}

}  // namespace

BoardLoad::BoardLoad(const LoadOptions& itsOptions, const TargetOptions& itsTarget,
                     const std::vector<ImageFile>& images, Output& itsOutput)
    : load(itsOptions), target(itsTarget), output(itsOutput) {
  SessionRequest request = Request(target, load.verifies ? MissingChip::Refuse : MissingChip::Make);
  if (load.verifies) request.settings.Set("ImageVerificationSetting", "1");
  plan = PlanLoad(images, request.device.map, PluginCutsUnder(request.settings));
  record = PlannedLoad(plan, images, request.device, request.settings);
  record.isDryRun = load.isDryRun;
  report.probe = target.probe;
  report.plugin = request.plugin.string();
  report.description = request.device.file.string();
  report.settings = AppliedSettings(request.device, request.settings);

  session = std::make_unique<host::Session>(std::move(request));
  keepsChip = record.mode == LoadMode::Program && !load.isDryRun;
  if (keepsChip) session->RequireSavableChip();
  if (load.isDryRun && session->View() == nullptr) throw InputError("--dry-run needs a simulated chip");
  const Preflight preflight =
      Inspect(plan, session->device, session->settings,
              {.allowOutside = load.allowOutside, .chipIsDescribed = session->View() != nullptr});
  record.warnings = preflight.warnings;
  RequireUnopposed(preflight.refusals);
  if (!target.trace.empty()) session->TraceTo(target.trace, kProgram);
}

// All that is wrong is said, each on its line; the first of it is the error.
void BoardLoad::RequireUnopposed(const std::vector<std::string>& refusals) {
  if (refusals.empty() && load.isStrict && !record.warnings.empty())
    throw InputError("refused because of --strict: " + record.warnings.front());
  if (refusals.empty()) return;
  for (auto other = refusals.begin() + 1; other != refusals.end(); ++other) output.Complain(*other);
  throw InputError(refusals.front());
}

std::string BoardLoad::Plan() const {
  return PlanText(record);
}

std::string BoardLoad::Board() {
  return TargetLine(target, *session) + SlowProbeText(target.probe, plan);
}

void BoardLoad::Work(const LoadEventSink& progress) {
  report.started = TimeNow();
  try {
    if (load.ifDifferent && IsThere()) {
      code = kDone;
      return;
    }
    Load(progress);
    if (keepsChip) Keep();
    Tell();
  } catch (const std::exception& failure) {
    code = kFailed;
    error = failure.what();
    if (!record.failure) record.failure = LoadFailure{.text = error};
    output.Complain(error);
  }
}

// Whether the chip holds the images already; says what is known of it.
bool BoardLoad::IsThere() {
  const AlreadyOnChip found = IsAlreadyOnChip(session->Target(), plan);
  for (const std::string& line : found.notCompared) output.Say(fmt::format("Not compared: {}\n", line));
  output.document["already_on_chip"] = found.isEqual;
  if (!found.isEqual) return false;
  record = FoundThere(record, found.record);
  output.Say(OutcomeSentence(record) + "\n");
  return true;
}

// The load itself, and what can be found out about a failure.
void BoardLoad::Load(const LoadEventSink& progress) {
  const std::optional<ChipPicture> before =
      session->View() != nullptr ? std::optional(session->View()->Picture()) : std::nullopt;
  if (before) report.before = DescribeContents(session->device, *before);
  const std::uint64_t roundTripsBefore = session->probe->RoundTrips();
  LoadSession(session->Target()).Run(plan, record, [&](const LoadEvent& event) {
    if (progress) progress(event);
    if (const auto* message = std::get_if<LoadMessage>(&event)) output.Show(*message);
  });
  record.roundTrips = session->probe->RoundTrips() - roundTripsBefore;
  if (!session->IsCancelled())
    FaultFinder(session->Target())
        .Explain(plan, record, load.findsAll ? FaultSearch::All : FaultSearch::First);
  if (before && record.mode == LoadMode::Program)
    AddContents(record, plan, session->device.map, *before, session->View()->Picture());
}

// Also after a failure: what happened to the chip has happened.
void BoardLoad::Keep() {
  try {
    session->SaveChip();
  } catch (const std::exception& failure) {
    if (!record.failure) record.failure = LoadFailure{.text = failure.what()};
  }
}

void BoardLoad::Tell() {
  code = CodeOf(record, *session);
  if (record.failure) error = record.failure->text;
  output.document.update(ToJson(record));
  output.Say(SummaryText(record));
  if (record.failure) {
    output.Complain(error);
    if (!output.IsJson()) output.Explain(FailureText(record));
  }
  if (const auto loss = session->TraceLoss()) output.Complain(*loss);
}

LoadReport BoardLoad::Report() {
  report.record = record;
  if (session->View() != nullptr)
    report.chip =
        target.chip.empty() ? "a blank chip that nobody keeps" : "chip " + ChipText(target, *session);
  report.wireHz = session->probe->WireHz();
  DescribeConfiguration();
  return report;
}

// As the chip holds it where that can be looked at, else as the images give it.
void BoardLoad::DescribeConfiguration() {
  Configuration configuration;
  std::optional<ChipPicture> picture;
  if (session->View() != nullptr) picture = session->View()->Picture();
  if (picture) {
    report.after = DescribeContents(session->device, *picture);
    configuration = {.ccfg = picture->ccfg, .scfg = picture->scfg, .isOnChip = true};
  } else {
    if (const ImageBlock* const ccfg = plan.Find(Region::Ccfg)) configuration.ccfg = ccfg->data;
    if (const ImageBlock* const scfg = plan.Find(Region::Scfg)) configuration.scfg = scfg->data;
  }
  report.configurationIsOnChip = configuration.isOnChip;
  report.configuration = ConfigurationFields(session->device, session->settings, configuration);
}

}  // namespace host::cli
