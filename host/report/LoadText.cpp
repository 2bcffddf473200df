#include "host/report/LoadText.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/plan/MemoryText.h"
#include "host/report/FailureText.h"

namespace host {

namespace {

constexpr std::size_t kMostRangesShown = 16;

// A line for each range of a region; the first line has what `describe` says of the region.
template <typename First, typename Further>
std::string RangeLines(const RegionRecord& region, First first, Further further) {
  if (region.ranges.size() == 1) return first(RangeText(region.ranges.front()));
  std::string text = first(fmt::format("{} ranges", region.ranges.size()));
  for (std::size_t i = 0; i < std::min(region.ranges.size(), kMostRangesShown); ++i)
    text += further(RangeText(region.ranges[i]), region.ranges[i].size);
  if (region.ranges.size() > kMostRangesShown)
    text += further(fmt::format("and {} more", region.ranges.size() - kMostRangesShown), 0);
  return text;
}

std::string RegionTable(const LoadRecord& record) {
  std::string table = fmt::format("  {:<12}{:<26}{:>10}{:>9}  {:<10}  {}\n", "Region", "Addresses", "Bytes",
                                  "Sectors", "CRC-32", "Outcome");
  for (const RegionRecord& region : record.regions)
    table += RangeLines(
        region,
        [&](const std::string& where) {
          return fmt::format("  {:<12}{:<26}{:>10}{:>9}  0x{:08x}  {}\n", Upper(RegionName(region.region)),
                             where, Grouped(region.bytes),
                             region.sectors == 0 ? "-" : Grouped(region.sectors), region.crc,
                             OutcomeOf(region));
        },
        [](const std::string& where, std::uint32_t size) {
          return fmt::format("  {:<12}{:<26}{:>10}\n", "", where, size == 0 ? "" : Grouped(size));
        });
  return table;
}

// A verification moves a command a block: its rate says nothing.
std::string EffortText(const LoadRecord& record) {
  std::string text = Duration(record.elapsedNs);
  if (record.mode == LoadMode::Program) {
    text += fmt::format(", {} over the wire", Bytes(record.wireBytes));
    const double seconds = static_cast<double>(record.elapsedNs) / 1e9;
    if (seconds > 0 && !record.failure)
      text += fmt::format(", {:.0f} KiB/s", static_cast<double>(record.wireBytes) / 1024 / seconds);
  }
  if (record.roundTrips) text += fmt::format(", {} round trips", Grouped(*record.roundTrips));
  return text;
}

std::string Verdict(const LoadRecord& record) {
  if (record.isInterrupted) return InterruptText(record) + "; after ";
  if (record.failure) return "Failed after ";
  const char* const done = record.mode == LoadMode::Verify ? "Verified"
                           : record.isDryRun ? "Dry run: a copy of the chip was loaded and verified"
                                             : "Loaded and verified";
  return fmt::format("{}{}: ", done, record.HasErrorMessages() ? ", but errors were reported" : "");
}

}  // namespace

std::string PlannedSteps(const LoadRecord& record) {
  if (record.mode == LoadMode::Verify) return "compare only, change nothing";
  const auto isFlash = [](const RegionRecord& region) {
    return region.region != Region::Ram && region.region != Region::Outside;
  };
  if (std::none_of(record.regions.begin(), record.regions.end(), isFlash)) return "write RAM, touch no flash";
  if (record.Find(Region::UserRecord) != nullptr)
    return "no erase (user record only), then program and verify";
  return record.erase + ", then program and verify";
}

std::string OutcomeOf(const RegionRecord& region) {
  const std::string_view text = OutcomeText(region.outcome);
  if (region.adaptedBytes.value_or(0) == 0) return std::string(text);
  return fmt::format("{}; {} set or left out by the load", text, Bytes(*region.adaptedBytes));
}

std::string FoundText(const LoadRecord& record) {
  if (record.flashSize.empty()) return "nothing: the chip was not identified";
  return fmt::format("flash {}, RAM {}, revision {}", record.flashSize, record.ramSize, record.revision);
}

std::string DifferenceText(const LoadRecord& record, AddressRange range) {
  LoadFailure place;
  place.range = range;
  place.firstSector = range.base / record.sectorSize;
  return fmt::format("{} ({}) differs", SectorsText(place, record.sectorSize), RangeText(range));
}

std::string OutcomeSentence(const LoadRecord& record) {
  if (record.wasThere) return std::string(kAlreadyThere);
  return Verdict(record) + EffortText(record);
}

std::string PlanText(const LoadRecord& record) {
  std::string text;
  for (const PlannedImage& image : record.images)
    text += fmt::format("{:<10}{} ({}, {})\n", "Image", image.name, image.format, Bytes(image.bytes));
  text += fmt::format("{:<10}{} ({})\n", "Device", record.device, record.deviceDescription);
  text += fmt::format("{:<10}{}\n", "Plan", PlannedSteps(record));
  for (const RegionRecord& region : record.regions)
    text += RangeLines(
        region,
        [&](const std::string& where) {
          return fmt::format("{:<10}{:<12}{:<24}  {}\n", "", Upper(RegionName(region.region)), where,
                             Bytes(region.bytes));
        },
        [](const std::string& where, std::uint32_t size) {
          return fmt::format("{:<22}{}{}\n", "", where, size == 0 ? "" : "    " + Bytes(size));
        });
  return text;
}

std::string SummaryText(const LoadRecord& record) {
  std::string text = fmt::format("\n{:<10}{}\n\n{}", "Found", FoundText(record), RegionTable(record));
  const bool isTold = record.mode == LoadMode::Program || !record.differences.empty();
  if (isTold && record.Find(Region::Main) != nullptr)
    text += "\n" + DrawFlashMap(record.sectors, record.sectorSize);
  if (record.isDryRun) {
    text += "\nDry run: this would change\n";
    for (const RegionChange& change : record.changes)
      text += fmt::format("  {:<12}{}\n", Upper(RegionName(change.region)),
                          change.bytes == 0 ? "nothing" : Bytes(change.bytes));
    text += "and the chip is as it was.\n";
  }
  text += "\n";
  for (const AddressRange range : record.differences) text += DifferenceText(record, range) + "\n";
  for (const std::string& note : record.notes) text += fmt::format("Note: {}\n", note);
  return text + OutcomeSentence(record) + "\n";
}

std::string InterruptText(const LoadRecord& record) {
  const LoadFailure failure = record.failure.value_or(LoadFailure{});
  const Phase phase = failure.phase.value_or(Phase::Identify);
  std::string text = fmt::format("interrupted in phase \"{}\"", PhaseName(phase));
  if (phase == Phase::ProgramMain && failure.range.size != 0)
    text = fmt::format("interrupted while programming {}", RangeText(failure.range));
  if (record.mode == LoadMode::Verify) return text + "; the chip is as it was";
  // Up to the erase, the chip holds what it held.
  if (phase < Phase::Erase) return text + "; nothing on the chip was changed";
  return text + "; the chip holds a part of the image: load again";
}

}  // namespace host
