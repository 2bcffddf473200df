#include "host/load/FaultFinder.h"

#include <fmt/format.h>

#include <algorithm>

namespace host {

namespace {

// Loads that are spent on finding a sector that is equal, to get past MAIN flash.
constexpr std::size_t kMostTries = 8;

const ImageBlock* FailedBlock(const LoadPlan& plan, const LoadFailure& failure) {
  for (const ImageBlock& block : plan.blocks)
    if (block.region == Region::Main && block.address < failure.range.End() &&
        block.address + std::uint64_t{block.data.size()} > failure.range.base)
      return &block;
  return nullptr;
}

bool IsMainMismatch(const LoadRecord& record) {
  return record.failure && record.failure->command == saci::kVerifyMain &&
         record.failure->result == saci::kCrcDiffers && !record.isInterrupted && record.sectorSize != 0;
}

}  // namespace

void FaultFinder::Explain(const LoadPlan& plan, LoadRecord& record, FaultSearch search) {
  if (!IsMainMismatch(record)) return;
  const ImageBlock* const failed = FailedBlock(plan, *record.failure);
  if (failed == nullptr) return;
  try {
    // Another plug-in may compare otherwise than block by block.
    const Span whole = Whole(*failed);
    const AddressRange range = record.failure->range;
    const std::uint32_t first = std::max(range.base / record.sectorSize, whole.begin);
    const auto end = std::min(static_cast<std::uint32_t>(range.End() / record.sectorSize), whole.end);
    if (search == FaultSearch::First || record.mode == LoadMode::Program) {
      FindFirst({failed, first, end}, record);
    } else {
      FindAll({failed, first, end}, record);
      // The comparison stopped there; everything behind is still to be looked at.
      FindAny({failed, end, whole.end}, record);
      for (const ImageBlock& block : plan.blocks)
        if (block.region == Region::Main && block.address > failed->address) FindAny(Whole(block), record);
    }
    if (record.differences.empty())
      record.notes.push_back("the sector that differs was not found: compared again, all of them are equal");
    if (record.mode == LoadMode::Verify) CompareRest(plan, record);
  } catch (const PluginError& error) {
    record.isInterrupted = target.services.IsCancelled();
    record.notes.push_back(fmt::format("the search for the sector that differs ended: {}", error.what()));
  }
}

FaultFinder::Span FaultFinder::Whole(const ImageBlock& block) const {
  const std::uint32_t size = target.device.map.sectorSize;
  const auto last = static_cast<std::uint32_t>((block.address + block.data.size() - 1) / size);
  return {&block, block.address / size, last + 1};
}

ImageBlock FaultFinder::Cut(Span span) const {
  const std::uint32_t size = target.device.map.sectorSize;
  const ImageBlock& block = *span.block;
  const std::uint64_t begin = std::max<std::uint64_t>(block.address, std::uint64_t{span.begin} * size);
  const std::uint64_t end =
      std::min(block.address + std::uint64_t{block.data.size()}, std::uint64_t{span.end} * size);
  ImageBlock part{Region::Main, static_cast<std::uint32_t>(begin), {}, {}};
  part.data.assign(block.data.begin() + static_cast<std::ptrdiff_t>(begin - block.address),
                   block.data.begin() + static_cast<std::ptrdiff_t>(end - block.address));
  part.given = {{part.address, static_cast<std::uint32_t>(part.data.size())}};
  return part;
}

bool FaultFinder::IsEqual(Span span, LoadRecord& record) {
  ++loads;
  LoadPlan plan;
  plan.blocks.push_back(Cut(span));
  const LoadRecord compared = CompareWithChip(target, plan);
  std::uint32_t skipped = 0;
  for (std::uint32_t sector = span.begin; sector < span.end; ++sector) {
    if (compared.sectors.at(sector) != SectorState::Skipped) continue;
    record.sectors.at(sector) = SectorState::Skipped;
    ++skipped;
  }
  const RegionOutcome outcome = compared.Find(Region::Main)->outcome;
  if (outcome == RegionOutcome::Differs) return false;
  if (outcome == RegionOutcome::Verified) return true;
  // Left out by the settings: nothing there can differ.
  if (outcome == RegionOutcome::NotCompared && skipped == span.end - span.begin) return true;
  throw PluginError(compared.failure ? compared.failure->text : "interrupted");
}

void FaultFinder::FindFirst(Span span, LoadRecord& record) {
  const Span whole = span;
  bool isKnown = false;  // that the span differs, from a load of just that span
  while (span.end - span.begin > 1) {
    const std::uint32_t middle = span.begin + (span.end - span.begin) / 2;
    isKnown = !IsEqual({span.block, span.begin, middle}, record);
    (isKnown ? span.end : span.begin) = middle;
  }
  // What made the first comparison fail may have passed.
  if (!isKnown && IsEqual(span, record)) return;
  const bool isVerification = record.mode == LoadMode::Verify;
  const SectorState equal = isVerification ? SectorState::Verified : SectorState::Programmed;
  const SectorState unsaid = isVerification ? SectorState::Unknown : SectorState::Unverified;
  Mark({span.block, whole.begin, span.begin}, equal, record);
  Mark({span.block, span.end, whole.end}, unsaid, record);
  Mark(span, SectorState::Failed, record);
}

void FaultFinder::FindAll(Span span, LoadRecord& record) {
  if (span.end - span.begin <= 1) {
    Mark(span, SectorState::Failed, record);
    return;
  }
  const std::uint32_t middle = span.begin + (span.end - span.begin) / 2;
  FindAny({span.block, span.begin, middle}, record);
  FindAny({span.block, middle, span.end}, record);
}

void FaultFinder::FindAny(Span span, LoadRecord& record) {
  if (span.begin >= span.end) return;
  if (IsEqual(span, record)) {
    Mark(span, SectorState::Verified, record);
  } else {
    FindAll(span, record);
  }
}

// Sectors that the settings leave out stay what they are.
void FaultFinder::Mark(Span span, SectorState state, LoadRecord& record) const {
  const std::uint32_t size = target.device.map.sectorSize;
  for (std::uint32_t sector = span.begin; sector < span.end && sector < record.sectors.size(); ++sector)
    if (record.sectors[sector] != SectorState::Skipped) record.sectors[sector] = state;
  if (state != SectorState::Failed) return;

  const AddressRange range{span.begin * size, (span.end - span.begin) * size};
  if (record.differences.empty() && record.failure) {
    record.failure->range = range;
    record.failure->firstSector = span.begin;
  }
  if (!record.differences.empty() && record.differences.back().End() == range.base) {
    record.differences.back().size += range.size;
  } else {
    record.differences.push_back(range);
  }
}

void FaultFinder::CompareRest(const LoadPlan& plan, LoadRecord& record) {
  LoadPlan rest;
  for (const ImageBlock& block : plan.blocks)
    if (block.region == Region::Ccfg || block.region == Region::Scfg) rest.blocks.push_back(block);
  if (rest.blocks.empty()) return;

  std::optional<ImageBlock> equal;
  std::size_t tries = 0;
  for (const ImageBlock& block : plan.blocks) {
    if (block.region != Region::Main || equal) continue;
    const Span span = Whole(block);
    for (std::uint32_t sector = span.begin; sector < span.end && !equal; ++sector) {
      const SectorState& state = record.sectors.at(sector);
      const Span one{&block, sector, sector + 1};
      if (state == SectorState::Verified ||
          ((state == SectorState::Unknown || state == SectorState::NotReached) && tries++ < kMostTries &&
           IsEqual(one, record) && state != SectorState::Skipped))
        equal = Cut(one);
    }
  }
  if (!equal) {
    record.notes.push_back(
        "the configuration was not compared: the plug-in does so only behind a part of main that is equal");
    return;
  }
  rest.blocks.insert(rest.blocks.begin(), std::move(*equal));
  ++loads;
  const LoadRecord compared = CompareWithChip(target, rest);
  for (RegionRecord& region : record.regions)
    if (region.region == Region::Ccfg || region.region == Region::Scfg)
      region.outcome = compared.Find(region.region)->outcome;
}

}  // namespace host
