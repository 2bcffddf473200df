#include "host/probe/ChipPicture.h"

#include <algorithm>

namespace host {

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
