#include "host/plan/MemoryText.h"

#include <fmt/format.h>

namespace host {

std::string_view MemoryTitle(Region region) {
  switch (region) {
    case Region::Main: return "MAIN flash";
    case Region::Ccfg: return "CCFG";
    case Region::UserRecord: return "user record";
    case Region::Scfg: return "SCFG";
    case Region::Otp: return "OTP";
    case Region::Ram: return "RAM";
    case Region::Outside: break;
  }
  return "no memory";
}

std::string RangeText(AddressRange range) {
  if (range.size == 0) return "none";
  return fmt::format("0x{:08x}..0x{:08x}", range.base, range.End() - 1);
}

AddressRange RangeOf(const MemoryMap& map, Region region) {
  switch (region) {
    case Region::Main: return map.main;
    case Region::Ccfg: return map.ccfg;
    case Region::UserRecord: return map.userRecord;
    case Region::Scfg: return map.scfg;
    case Region::Otp: return map.otp;
    case Region::Ram: return map.ram;
    case Region::Outside: break;
  }
  return {};
}

}  // namespace host
