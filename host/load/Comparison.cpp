#include "host/load/Comparison.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "host/plan/Preflight.h"

namespace host {

namespace {

constexpr std::uint32_t kCrcSize = 4;

class VerificationSetting {
 public:
  explicit VerificationSetting(PropertyStore& propertyStore)
      : settings(propertyStore), before(propertyStore.Get(kName, "0")) {
    settings.Set(kName, "1");
  }
  ~VerificationSetting() { settings.Set(kName, before); }
  VerificationSetting(const VerificationSetting&) = delete;
  VerificationSetting& operator=(const VerificationSetting&) = delete;

 private:
  static constexpr std::string_view kName = "ImageVerificationSetting";
  PropertyStore& settings;
  std::string before;
};

// A part of a sector that a CRC covers, the CRC word included: no comparison finds that one, and a load may
// put it right.
AddressRange Covered(AddressRange sector, CoveredRange crc) {
  return {sector.base + crc.offset, crc.length + kCrcSize};
}

// Blank bytes aside, which say nothing.
bool HasBytesOutside(const ImageBlock& block, std::initializer_list<AddressRange> covered) {
  for (const AddressRange given : block.given)
    for (std::uint32_t i = 0; i < given.size; ++i) {
      const std::uint32_t address = given.base + i;
      const bool isCovered = std::any_of(covered.begin(), covered.end(),
                                         [&](AddressRange range) { return range.Contains(address); });
      if (!isCovered && block.data[address - block.address] != kErased) return true;
    }
  return false;
}

// What a load would program of the block and no comparison would see; empty when there is no such thing.
std::string NotComparable(const ImageBlock& block, const LoadTarget& target) {
  const MemoryMap& map = target.device.map;
  const ChipFacts& chip = target.device.chip;
  switch (block.region) {
    case Region::Main: return "";
    case Region::Ccfg: {
      // Left out by a load, too, unless the settings say otherwise.
      const bool isRecordProgrammed = target.settings.Get("CcfgSkipProgrammingUserRecord", "1") != "1";
      const AddressRange record = isRecordProgrammed ? AddressRange{} : map.userRecord;
      if (!HasBytesOutside(block, {Covered(map.ccfg, chip.bootCrc), Covered(map.ccfg, chip.ccfgCrc),
                                   Covered(map.ccfg, chip.debugCrc), record}))
        return "";
      return "the CCFG's user record";
    }
    case Region::Scfg:
      if (!HasBytesOutside(block, {Covered(map.scfg, chip.scfgCrc)})) return "";
      return "the SCFG beyond its CRC";
    case Region::UserRecord:
    case Region::Otp:
    case Region::Ram:
    case Region::Outside: return std::string(RegionName(block.region));
  }
  return "";
}

}  // namespace

LoadRecord CompareWithChip(const LoadTarget& target, const LoadPlan& plan) {
  const VerificationSetting setting(target.settings);
  LoadRecord record = PlannedLoad(plan, {}, target.device, target.settings);
  LoadSession(target).Run(plan, record);
  return record;
}

AlreadyOnChip IsAlreadyOnChip(const LoadTarget& target, const LoadPlan& plan) {
  const bool keepsConfiguration = ChosenErase(target.settings).keepsConfiguration;

  AlreadyOnChip answer;
  LoadPlan compared;
  for (const ImageBlock& block : plan.blocks) {
    // The load would leave what is kept as it is.
    if (keepsConfiguration && (block.region == Region::Ccfg || block.region == Region::Scfg)) continue;
    const std::string what = NotComparable(block, target);
    const bool isKnown =
        std::find(answer.notCompared.begin(), answer.notCompared.end(), what) != answer.notCompared.end();
    if (!what.empty() && !isKnown) answer.notCompared.push_back(what);
    compared.blocks.push_back(block);
  }
  if (!answer.notCompared.empty()) return answer;
  answer.record = CompareWithChip(target, compared);
  answer.isEqual = !answer.record.failure;
  return answer;
}

}  // namespace host
