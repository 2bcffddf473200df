#include "host/report/LoadText.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>

namespace host {

namespace {

std::string Bytes(std::uint64_t count) {
  return fmt::format("{} byte{}", Grouped(count), count == 1 ? "" : "s");
}

std::string Upper(std::string_view text) {
  std::string upper(text);
  std::transform(upper.begin(), upper.end(), upper.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return upper;
}

std::string OutcomeOf(const RegionReport& region) {
  if (region.outcome != RegionOutcome::Adapted) return std::string(OutcomeText(region.outcome));
  return fmt::format("programmed; {} set or left out by the load", Bytes(region.adaptedBytes));
}

struct RegionChange {
  std::string_view name;
  std::size_t bytes = 0;
};

std::vector<RegionChange> Changes(const ChipPicture& before, const ChipPicture& after) {
  const auto differing = [](const std::vector<std::uint8_t>& was, const std::vector<std::uint8_t>& is) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < std::min(was.size(), is.size()); ++i) count += was[i] != is[i] ? 1U : 0U;
    return count;
  };
  return {{"main", differing(before.main, after.main)},
          {"ccfg", differing(before.ccfg, after.ccfg)},
          {"scfg", differing(before.scfg, after.scfg)},
          {"otp", differing(before.otp, after.otp)},
          {"ram", differing(before.ram, after.ram)}};
}

std::string RegionTable(const LoadReport& report) {
  std::string table = fmt::format("  {:<12}{:<26}{:>10}{:>9}  {:<10}  {}\n", "Region", "Addresses", "Bytes",
                                  "Sectors", "CRC-32", "Outcome");
  for (const RegionReport& region : report.regions)
    table +=
        fmt::format("  {:<12}{:<26}{:>10}{:>9}  0x{:08x}  {}\n", Upper(RegionName(region.region)),
                    fmt::format("0x{:08x}..0x{:08x}", region.address, region.end - 1), Grouped(region.bytes),
                    region.sectors == 0 ? "-" : Grouped(region.sectors), region.crc, OutcomeOf(region));
  return table;
}

// What the plug-in found, from the properties it publishes.
std::string FoundText(const PropertyStore& settings) {
  return fmt::format("flash {}, RAM {}, revision {}", settings.Get("DeviceInfoFlashSize", "--"),
                     settings.Get("DeviceInfoRAMSize", "--"), settings.Get("DeviceInfoRevision", "--"));
}

std::string SpeedText(const LoadReport& report) {
  const double seconds = static_cast<double>(report.elapsedNs) / 1e9;
  if (seconds <= 0) return "";
  return fmt::format(", {:.0f} kB/s", static_cast<double>(report.bytesWritten) / 1e3 / seconds);
}

}  // namespace

std::string PlanText(const LoadPlan& plan, const DeviceDescription& device, const PropertyStore& settings,
                     const std::vector<ImageFile>& images, LoadMode mode) {
  std::string text;
  for (const ImageFile& image : images) {
    std::size_t bytes = 0;
    for (const ImageSegment& segment : image.segments) bytes += segment.data.size();
    text +=
        fmt::format("{:<10}{} ({}, {})\n", "Image", image.name, ImageFormatName(image.format), Bytes(bytes));
  }
  text += fmt::format("{:<10}{} ({})\n", "Device", device.name, device.description);
  const std::string plain = fmt::format("{}, then program and verify", EraseOf(plan, settings).text);
  text +=
      fmt::format("{:<10}{}\n", "Plan", mode == LoadMode::Verify ? "compare only, change nothing" : plain);
  for (const RegionReport& region : DescribeRegions(plan, device.map))
    text += fmt::format("{:<10}{:<12}{} at 0x{:08x}\n", "", Upper(RegionName(region.region)),
                        Bytes(region.bytes), region.address);
  return text;
}

std::string SummaryText(const LoadStory& story) {
  const LoadReport& report = story.report;
  std::string text = fmt::format("\n{:<10}{}\n\n{}", "Found", FoundText(story.settings), RegionTable(report));
  if (report.mode == LoadMode::Program) {
    text += "\n" + DrawFlashMap(story.sectors, story.device.map.sectorSize);
    const auto count = [&](SectorState state) { return Grouped(CountSectors(story.sectors, state)); };
    text +=
        fmt::format("  {} programmed, {} erased, {} retained, {} skipped\n", count(SectorState::Programmed),
                    count(SectorState::Erased), count(SectorState::Retained), count(SectorState::Skipped));
  }
  if (story.isDryRun) {
    text += "\nDry run: this would change\n";
    for (const RegionChange& change : Changes(story.before, story.after))
      text += fmt::format("  {:<12}{}\n", Upper(change.name),
                          change.bytes == 0 ? "nothing" : Bytes(change.bytes));
    text += "and the chip is as it was.\n";
  }
  text += "\n";
  if (!report.note.empty()) text += fmt::format("Note: {}\n", report.note);
  const std::string effort =
      fmt::format("modelled time {}, {} over the wire{}, {} round trips", Duration(report.elapsedNs),
                  Bytes(report.bytesWritten), SpeedText(report), Grouped(story.roundTrips));
  if (report.error) {
    text += fmt::format("Failed after {}\n", effort);
  } else {
    text += fmt::format("{}{}: {}\n", report.mode == LoadMode::Verify ? "Verified" : "Loaded and verified",
                        report.HasErrorMessages() ? ", but errors were reported" : "", effort);
  }
  return text;
}

Json ToJson(const LoadStory& story, int exitCode) {
  const LoadReport& report = story.report;
  Json result = {{"exit_code", exitCode},
                 {"mode", report.mode == LoadMode::Verify ? "verify" : "program"},
                 {"dry_run", story.isDryRun},
                 {"device", story.device.name},
                 {"flash_size", story.settings.Get("DeviceInfoFlashSize")},
                 {"ram_size", story.settings.Get("DeviceInfoRAMSize")},
                 {"revision", story.settings.Get("DeviceInfoRevision")}};
  result["images"] = Json::array();
  for (const ImageFile& image : story.images)
    result["images"].push_back({{"name", image.name}, {"format", ImageFormatName(image.format)}});
  result["warnings"] = story.warnings;
  result["regions"] = Json::array();
  for (const RegionReport& region : report.regions)
    result["regions"].push_back({{"region", RegionName(region.region)},
                                 {"address", region.address},
                                 {"end", region.end},
                                 {"bytes", region.bytes},
                                 {"sectors", region.sectors},
                                 {"crc32", fmt::format("0x{:08x}", region.crc)},
                                 {"outcome", OutcomeText(region.outcome)},
                                 {"bytes_adapted", region.adaptedBytes}});
  if (report.mode == LoadMode::Program) {
    std::string map;
    for (const SectorState state : story.sectors) map += static_cast<char>(state);
    result["sectors"] = {{"programmed", CountSectors(story.sectors, SectorState::Programmed)},
                         {"erased", CountSectors(story.sectors, SectorState::Erased)},
                         {"retained", CountSectors(story.sectors, SectorState::Retained)},
                         {"skipped", CountSectors(story.sectors, SectorState::Skipped)},
                         {"map", map}};
    for (const RegionChange& change : Changes(story.before, story.after))
      result["bytes_changed"][std::string(change.name)] = change.bytes;
  }
  result["messages"] = ToJson(report.messages);
  result["note"] = report.note;
  result["error"] = report.error ? Json(*report.error) : Json(nullptr);
  result["modelled_ms"] = static_cast<double>(report.elapsedNs) / 1e6;
  result["wire_bytes"] = report.bytesWritten;
  result["round_trips"] = story.roundTrips;
  result["host_calls"] = report.hostCalls;
  return result;
}

}  // namespace host
