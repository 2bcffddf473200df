#include "host/gdb/ChipTarget.h"

#include <fmt/format.h>

#include "host/device/InputError.h"
#include "host/gdb/Monitor.h"
#include "host/load/Comparison.h"
#include "host/load/FaultFinder.h"
#include "host/plan/ImagePlan.h"
#include "host/plan/MemoryText.h"
#include "host/plan/Preflight.h"
#include "host/report/FailureText.h"
#include "host/report/LoadText.h"

namespace host::gdb {

namespace {

constexpr const char* kImageName = "the client's load";

// What a client is told of a load, in one line: what, where, what to do about it. Nothing when the chip holds
// all of it, also if errors were reported on the way: those are on the terminal and in the report.
std::optional<std::string> ForClient(const LoadRecord& record) {
  constexpr const char* kMore = " (more: monitor report)";
  if (record.failure) {
    std::string text = record.failure->text;
    if (record.failure->range.size != 0) text += fmt::format("; at {}", RangeText(record.failure->range));
    const std::string remedy = AdviceOn(record).remedy;
    return text + (remedy.empty() || record.isInterrupted ? "" : "; " + remedy) + kMore;
  }
  for (const RegionRecord& region : record.regions) {
    if (region.outcome != RegionOutcome::NotWritten) continue;
    std::string text = fmt::format("{} was not written", Upper(RegionName(region.region)));
    for (const LoadMessage& message : record.messages)
      if (message.isError) text += "; " + message.text;
    return text + kMore;
  }
  return std::nullopt;
}

std::size_t ElementSize(std::uint32_t address, std::size_t bytes) {
  return address % 4 == 0 && bytes % 4 == 0 ? 4 : 1;
}

}  // namespace

void ChipTarget::Load(std::vector<ImageSegment> segments) {
  isConnected = false;
  const std::vector<ImageFile> images{{kImageName, ImageFormat::Raw, std::move(segments)}};
  try {
    const LoadPlan plan = PlanLoad(images, Map(), PluginCutsUnder(session.settings));
    LoadRecord load = PlannedLoad(plan, images, session.device, session.settings);
    load.warnings = Inspected(plan).warnings;
    terminal.Say("\n" + PlanText(load) + "\n");
    for (const std::string& warning : load.warnings) terminal.Complain("warning: " + warning);
    if (loadsOnlyDifferent && IsAlreadyThere(plan)) return;
    lastPlan = plan;
    Carry(plan, load);
    record = std::move(load);
  } catch (const std::exception& error) {
    report = fmt::format("the load was refused, and nothing was done: {}\n", error.what());
    throw;
  }
  if (const auto error = ForClient(*record)) throw ToldError(*error);
}

Preflight ChipTarget::Inspected(const LoadPlan& plan) {
  session.RequireSavableChip();
  Preflight found =
      Inspect(plan, session.device, session.settings, {.chipIsDescribed = session.View() != nullptr});
  if (found.refusals.empty()) return found;
  for (auto other = found.refusals.begin() + 1; other != found.refusals.end(); ++other)
    terminal.Complain(*other);
  throw InputError(found.refusals.front());
}

bool ChipTarget::IsAlreadyThere(const LoadPlan& plan) {
  const AlreadyOnChip found = IsAlreadyOnChip(session.Target(), plan);
  for (const std::string& line : found.notCompared) terminal.Say(fmt::format("Not compared: {}\n", line));
  if (!found.isEqual) return false;
  report = "Already on the chip: nothing was erased, nothing was programmed\n";
  terminal.Say(report);
  lastPlan = plan;
  return true;
}

void ChipTarget::Carry(const LoadPlan& plan, LoadRecord& load) {
  const std::optional<ChipPicture> before =
      session.View() != nullptr ? std::optional(session.View()->Picture()) : std::nullopt;
  const std::uint64_t roundTrips = session.probe->RoundTrips();
  LoadSession(session.Target()).Run(plan, load, [this](const LoadEvent& event) { terminal.Follow(event); });
  load.roundTrips = session.probe->RoundTrips() - roundTrips;
  if (!session.IsCancelled()) FaultFinder(session.Target()).Explain(plan, load, FaultSearch::First);
  if (before && load.mode == LoadMode::Program)
    AddContents(load, plan, Map(), *before, session.View()->Picture());
  try {
    Keep();
  } catch (const std::exception& error) {
    if (!load.failure) load.failure = LoadFailure{.text = error.what()};
  }

  terminal.Say(SummaryText(load));
  report = PlanText(load) + SummaryText(load);
  for (const std::string& warning : load.warnings) report += fmt::format("warning: {}\n", warning);
  for (const LoadMessage& message : load.messages)
    if (message.isError) report += fmt::format("reported: {}\n", message.text);
  if (!load.failure) return;
  terminal.Complain(load.failure->text);
  terminal.Explain(FailureText(load));
  report += fmt::format("{}\n{}", load.failure->text, FailureText(load));
}

void ChipTarget::Keep() {
  session.SaveChip();
}

std::string ChipTarget::Verify() {
  if (!lastPlan) throw InputError("nothing has been loaded yet that the chip could be compared with");
  isConnected = false;
  LoadRecord compared = CompareWithChip(session.Target(), *lastPlan);
  if (!session.IsCancelled()) FaultFinder(session.Target()).Explain(*lastPlan, compared, FaultSearch::First);
  if (!compared.failure) return "the chip holds what was loaded\n";
  throw std::runtime_error(*ForClient(compared));
}

// A plug-in ends a load with the core connected, and this host cannot tell how long that lasts: it connects
// anew whenever something else has had the chip.
void ChipTarget::Connect() {
  if (isConnected) return;
  session.services.ConnectDebugPort();
  session.probe->Connect(Core::Cortex);
  isConnected = true;
}

bool ChipTarget::IsOpen() {
  try {
    Connect();
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

void ChipTarget::Read(std::uint32_t address, std::span<std::uint8_t> bytes) {
  if (bytes.empty()) return;
  if (!IsOpen())
    throw std::runtime_error(
        "the chip's memory is closed and cannot be read; a load or 'monitor unlock' may open it");
  session.probe->ReadMemory(PlainAddress(address), bytes, ElementSize(address, bytes.size()));
}

void ChipTarget::WriteRam(std::uint32_t address, std::span<const std::uint8_t> bytes) {
  Connect();
  session.probe->WriteMemory(PlainAddress(address), bytes, ElementSize(address, bytes.size()));
}

// Of a memory's alias; what is no memory is left as it is.
std::uint32_t ChipTarget::PlainAddress(std::uint32_t address) const {
  const std::uint32_t plain = address & ~Map().aliasMask;
  for (const AddressRange memory : {Map().main, Map().ccfg, Map().scfg, Map().otp, Map().ram})
    if (memory.Contains(plain)) return plain;
  return address;
}

void ChipTarget::Monitor(std::string_view command, const Console& console) {
  RunMonitor(command, {session, *this, terminal, console});
}

}  // namespace host::gdb
