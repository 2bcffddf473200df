#include <fmt/format.h>

#include "host/plan/MemoryText.h"
#include "host/plan/Preflight.h"

namespace host {

std::vector<std::string> Contradictions(const DeviceDescription& device) {
  const ChipFacts& chip = device.chip;
  const AddressRange userRecord{chip.ccfg.base + chip.userRecord.offset, chip.userRecord.length};
  const struct {
    Region region;
    AddressRange ofChip;
  } memories[] = {
      {Region::Main, {0, chip.mainSize}}, {Region::Ccfg, chip.ccfg}, {Region::UserRecord, userRecord},
      {Region::Scfg, chip.scfg},          {Region::Otp, chip.otp},   {Region::Ram, chip.ram},
  };
  std::vector<std::string> differences;
  const auto differs = [&](const std::string& described, const std::string& ofChip) {
    differences.push_back(
        fmt::format("{}: the description says {}, its chip has {}", device.name, described, ofChip));
  };
  if (device.map.sectorSize != chip.sectorSize)
    differs(fmt::format("MAIN sectors of {} bytes", device.map.sectorSize),
            fmt::format("{}", chip.sectorSize));
  for (const auto& memory : memories) {
    const AddressRange described = RangeOf(device.map, memory.region);
    if (described == memory.ofChip || (described.size == 0 && memory.ofChip.size == 0)) continue;
    differs(fmt::format("{} {}", MemoryTitle(memory.region), RangeText(described)), RangeText(memory.ofChip));
  }
  return differences;
}

}  // namespace host
