#include "host/probe/ChipPicture.h"

#include <algorithm>
#include <numeric>

namespace host {

std::uint64_t ChipPicture::WritesOf(Region region) const {
  switch (region) {
    case Region::Main:
      return std::accumulate(mainWear.begin(), mainWear.end(), std::uint64_t{0},
                             [](std::uint64_t sum, SectorWear wear) { return sum + wear.programs; });
    case Region::Ccfg:
    case Region::UserRecord: return writes.ccfg;
    case Region::Scfg: return writes.scfg;
    case Region::Otp: return writes.otp;
    case Region::Ram: return writes.ram;
    case Region::Outside: break;
  }
  return 0;
}

std::span<const std::uint8_t> ChipPicture::At(std::uint32_t address, std::size_t length, Region region,
                                              const MemoryMap& map) const {
  struct Memory {
    std::span<const std::uint8_t> bytes;
    std::uint32_t base = 0;
  };
  const auto memory = [&]() -> Memory {
    switch (region) {
      case Region::Main: return {main, map.main.base};
      case Region::Ccfg:
      case Region::UserRecord: return {ccfg, map.ccfg.base};
      case Region::Scfg: return {scfg, map.scfg.base};
      case Region::Otp: return {otp, map.otp.base};
      case Region::Ram: return {ram, map.ram.base};
      case Region::Outside: break;
    }
    return {};
  }();
  if (address < memory.base || address - memory.base >= memory.bytes.size()) return {};
  const auto rest = memory.bytes.subspan(address - memory.base);
  return rest.first(std::min(length, rest.size()));
}

}  // namespace host
