#include "host/load/LoadReport.h"

#include <algorithm>
#include <array>

#include "host/plan/Crc32.h"

namespace host {

std::string_view OutcomeText(RegionOutcome outcome) {
  switch (outcome) {
    case RegionOutcome::NotReached: return "not reached";
    case RegionOutcome::Failed: return "failed";
    case RegionOutcome::Delivered: return "delivered";
    case RegionOutcome::Programmed: return "programmed";
    case RegionOutcome::Adapted: return "programmed, adapted";
    case RegionOutcome::NotWritten: return "not written";
    case RegionOutcome::Verified: return "verified";
    case RegionOutcome::NotCompared: return "not compared";
  }
  return "?";
}

bool LoadReport::HasErrorMessages() const {
  return std::any_of(messages.begin(), messages.end(),
                     [](const LoadMessage& message) { return message.isError; });
}

std::vector<RegionReport> DescribeRegions(const LoadPlan& plan, const MemoryMap& map) {
  std::vector<RegionReport> reports;
  for (const ImageBlock& block : plan.blocks) {
    if (reports.empty() || reports.back().region != block.region) {
      reports.push_back({.region = block.region, .address = block.address});
    }
    RegionReport& report = reports.back();
    report.end = std::uint64_t{block.address} + block.data.size();
    report.bytes += block.ImageBytes();
    report.crc = Crc32(block.data, report.crc);
    if (block.region == Region::Main) {
      // No two blocks share a sector, so the sectors of the blocks add up.
      const std::uint32_t first = block.address / map.sectorSize;
      report.sectors += static_cast<std::size_t>((report.end - 1) / map.sectorSize - first + 1);
    } else if (block.region != Region::Ram && block.region != Region::Outside) {
      report.sectors = 1;
    }
  }
  return reports;
}

void JudgeByContents(LoadReport& report, const LoadPlan& plan, const MemoryMap& map,
                     const ChipPicture& before, const ChipPicture& after) {
  for (RegionReport& region : report.regions) {
    if (region.outcome == RegionOutcome::NotReached) continue;
    const bool isWritten = before.WritesOf(region.region) != after.WritesOf(region.region);
    std::size_t differing = 0;
    for (const ImageBlock& block : plan.blocks) {
      if (block.region != region.region || block.address < region.address || block.address >= region.end)
        continue;
      const auto is = after.At(block.address, block.data.size(), block.region, map);
      for (std::size_t i = 0; i < block.data.size(); ++i)
        if (i >= is.size() || is[i] != block.data[i]) ++differing;
    }
    if (isWritten && differing == 0) {
      region.outcome = RegionOutcome::Programmed;
    } else if (region.outcome == RegionOutcome::Delivered) {
      region.outcome = isWritten ? RegionOutcome::Adapted : RegionOutcome::NotWritten;
      region.adaptedBytes = isWritten ? differing : 0;
    }
  }
}

}  // namespace host
