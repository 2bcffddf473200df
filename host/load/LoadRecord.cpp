#include "host/load/LoadRecord.h"

#include <algorithm>
#include <span>
#include <utility>

#include "host/plan/Crc32.h"
#include "host/plan/Preflight.h"

namespace host {

namespace {

// One run of bytes after the other, joined where they adjoin.
void Append(std::vector<AddressRange>& ranges, AddressRange range) {
  if (!ranges.empty() && ranges.back().End() == range.base) {
    ranges.back().size += range.size;
  } else {
    ranges.push_back(range);
  }
}

bool IsProgrammedInPieces(Region region) {
  return region == Region::Main || region == Region::Ram || region == Region::Outside;
}

std::vector<RegionRecord> RegionsOf(const LoadPlan& plan, std::uint32_t sectorSize) {
  std::vector<RegionRecord> regions;
  for (const ImageBlock& block : plan.blocks) {
    if (regions.empty() || regions.back().region != block.region) {
      regions.emplace_back();
      regions.back().region = block.region;
    }
    RegionRecord& region = regions.back();
    const AddressRange whole = block.Range();
    if (IsProgrammedInPieces(block.region)) {
      for (const AddressRange given : block.given) Append(region.ranges, given);
    } else {
      region.ranges.push_back(whole);
    }
    region.bytes += block.ImageBytes();
    region.crc = Crc32(block.data, region.crc);
    if (block.region == Region::Main) {
      // No two blocks share a sector, so the sectors of the blocks add up.
      region.sectors +=
          static_cast<std::size_t>((whole.End() - 1) / sectorSize - block.address / sectorSize + 1);
    } else if (block.region != Region::Ram && block.region != Region::Outside) {
      region.sectors = 1;
    }
  }
  return regions;
}

std::vector<SectorChange> SectorChanges(std::span<const std::uint8_t> before,
                                        std::span<const std::uint8_t> after, std::size_t sectorSize) {
  std::vector<SectorChange> changes;
  for (std::size_t at = 0; at < std::min(before.size(), after.size()); at += sectorSize) {
    const auto was = before.subspan(at, std::min(sectorSize, before.size() - at));
    const auto is = after.subspan(at, std::min(sectorSize, after.size() - at));
    changes.push_back(
        {.wasBlank = std::all_of(was.begin(), was.end(), [](std::uint8_t b) { return b == kErased; }),
         .hasChanged = !std::equal(was.begin(), was.end(), is.begin(), is.end())});
  }
  return changes;
}

}  // namespace

std::string_view OutcomeText(RegionOutcome outcome) {
  switch (outcome) {
    case RegionOutcome::NotReached: return "not reached";
    case RegionOutcome::Failed: return "failed";
    case RegionOutcome::Programmed: return "programmed";
    case RegionOutcome::Unverified: return "programmed, not verified";
    case RegionOutcome::NotWritten: return "not written";
    case RegionOutcome::Verified: return "verified";
    case RegionOutcome::Differs: return "differs";
    case RegionOutcome::NotCompared: return "not compared";
  }
  return "?";
}

bool LoadRecord::HasErrorMessages() const {
  return std::any_of(messages.begin(), messages.end(),
                     [](const LoadMessage& message) { return message.isError; });
}

bool LoadRecord::Differs() const {
  return std::any_of(regions.begin(), regions.end(),
                     [](const RegionRecord& region) { return region.outcome == RegionOutcome::Differs; });
}

const RegionRecord* LoadRecord::Find(Region region) const {
  const auto found = std::find_if(regions.begin(), regions.end(),
                                  [&](const RegionRecord& candidate) { return candidate.region == region; });
  return found == regions.end() ? nullptr : &*found;
}

RegionRecord* LoadRecord::Find(Region region) {
  return const_cast<RegionRecord*>(std::as_const(*this).Find(region));
}

LoadRecord PlannedLoad(const LoadPlan& plan, const std::vector<ImageFile>& images,
                       const DeviceDescription& device, const PropertyStore& settings) {
  LoadRecord record;
  record.mode = ModeOf(settings);
  record.device = device.name;
  record.deviceDescription = device.description;
  for (const ImageFile& image : images) {
    record.images.push_back({image.name, std::string(ImageFormatName(image.format)), 0, image.sha256});
    for (const ImageSegment& segment : image.segments) record.images.back().bytes += segment.data.size();
  }
  record.erase = ChosenErase(settings).text;
  record.sectorSize = device.map.sectorSize;
  record.regions = RegionsOf(plan, device.map.sectorSize);
  return record;
}

LoadRecord FoundThere(const LoadRecord& planned, const LoadRecord& comparison) {
  LoadRecord found = comparison;
  found.wasThere = true;
  found.mode = planned.mode;
  found.images = planned.images;
  found.erase = planned.erase;
  found.warnings = planned.warnings;
  found.isDryRun = planned.isDryRun;
  found.regions = planned.regions;
  // What was not compared is what the load would have kept.
  for (RegionRecord& region : found.regions) {
    const RegionRecord* const compared = comparison.Find(region.region);
    region.outcome = compared == nullptr ? RegionOutcome::NotWritten : compared->outcome;
  }
  return found;
}

void AddContents(LoadRecord& record, const LoadPlan& plan, const MemoryMap& map, const ChipPicture& before,
                 const ChipPicture& after) {
  const auto change = [&](Region region, const std::vector<std::uint8_t>& was,
                          const std::vector<std::uint8_t>& is) {
    std::size_t count = 0;
    for (std::size_t i = 0; i < std::min(was.size(), is.size()); ++i) count += was[i] != is[i] ? 1U : 0U;
    record.changes.push_back({region, count});
  };
  change(Region::Main, before.main, after.main);
  change(Region::Ccfg, before.ccfg, after.ccfg);
  change(Region::Scfg, before.scfg, after.scfg);
  change(Region::Otp, before.otp, after.otp);
  change(Region::Ram, before.ram, after.ram);
  record.sectorChanges = SectorChanges(before.main, after.main, map.sectorSize);

  for (const ImageBlock& block : plan.blocks) {
    RegionRecord* const region = record.Find(block.region);
    if (region == nullptr) continue;
    if (region->outcome != RegionOutcome::Programmed && region->outcome != RegionOutcome::Unverified)
      continue;
    const auto is = after.At(block.address, block.data.size(), block.region, map);
    std::size_t differing = region->adaptedBytes.value_or(0);
    for (std::size_t i = 0; i < block.data.size(); ++i)
      if (i >= is.size() || is[i] != block.data[i]) ++differing;
    region->adaptedBytes = differing;
  }
}

}  // namespace host
