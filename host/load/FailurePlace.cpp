#include "host/load/FailurePlace.h"

#include "host/plan/MemoryText.h"

namespace host {

namespace {

// A failure of RAM shows in no command of the ROM.
bool HasFailedInMemory(const SaciWatch& watch) {
  if (watch.Accesses().empty()) return false;
  const MemoryAccess& last = watch.Accesses().back();
  if (!last.hasFailed && last.equalsWritten.value_or(true)) return false;
  return watch.Exchanges().empty() || last.call > watch.Exchanges().back().lastCall;
}

void PlaceInMemory(LoadFailure& failure, const MemoryAccess& access, const LoadPlan& plan) {
  failure.phase = Phase::Ram;
  failure.region = Region::Ram;
  failure.range = access.range;
  for (const ImageBlock& block : plan.blocks)
    if (block.Range().Contains(access.range.base) && block.region == Region::Outside)
      failure.region = Region::Outside;
}

void PlaceAt(LoadFailure& failure, const SaciExchange& exchange, const LoadPlan& plan, const MemoryMap& map,
             const ImageBlock* failedBlock) {
  failure.command = exchange.command;
  failure.result = exchange.Result();
  failure.region = RegionOf(exchange, plan);
  if (!failure.region) return;
  failure.range = failure.region == Region::Main ? exchange.MainRange() : RangeOf(map, *failure.region);
  if (exchange.command != saci::kProgramPipelined) return;
  // A refusal is of one sector; without one, any of the block may be it.
  if (failure.result.value_or(0) != 0) {
    failure.range = {failure.range.base + exchange.sectorsAcknowledged * map.sectorSize, map.sectorSize};
  } else if (failedBlock != nullptr) {
    failure.range = failedBlock->Range();
  }
}

}  // namespace

std::optional<Region> RegionOf(const SaciExchange& exchange, const LoadPlan& plan) {
  switch (exchange.command) {
    case saci::kProgramSector:
    case saci::kProgramPipelined:
    case saci::kVerifyMain: return Region::Main;
    case saci::kProgramUserRecord: return Region::UserRecord;
    case saci::kProgramCcfg:
    case saci::kVerifyCcfg: return plan.Has(Region::UserRecord) ? Region::UserRecord : Region::Ccfg;
    case saci::kProgramScfg:
    case saci::kVerifyScfg: return Region::Scfg;
    case saci::kProgramOtp: return Region::Otp;
    default: return std::nullopt;
  }
}

LoadFailure PlaceFailure(const std::string& text, const LoadPlan& plan, const DeviceDescription& device,
                         const SaciWatch& watch, const ImageBlock* failedBlock) {
  LoadFailure failure;
  failure.text = text;
  failure.phase = watch.Present();
  if (HasFailedInMemory(watch)) {
    PlaceInMemory(failure, watch.Accesses().back(), plan);
  } else if (!watch.Exchanges().empty() && watch.Exchanges().back().HasFailed()) {
    PlaceAt(failure, watch.Exchanges().back(), plan, device.map, failedBlock);
  } else if (failedBlock != nullptr && watch.Present() > Phase::Erase) {
    failure.region = failedBlock->region;
    failure.range = failedBlock->Range();
  }
  if (failure.region == Region::Main && device.map.sectorSize != 0)
    failure.firstSector = failure.range.base / device.map.sectorSize;
  return failure;
}

}  // namespace host
