#include "host/device/MemoryMap.h"

namespace host {

namespace {

struct NamedRegion {
  Region region;
  std::string_view text;
};
constexpr NamedRegion s_regionNames[] = {
    {Region::Main, "main"},       {Region::Ccfg, "ccfg"}, {Region::UserRecord, "user record"},
    {Region::Scfg, "scfg"},       {Region::Otp, "otp"},   {Region::Ram, "ram"},
    {Region::Outside, "outside"},
};

}  // namespace

std::string_view RegionName(Region region) {
  for (const auto& name : s_regionNames)
    if (name.region == region) return name.text;
  return "unknown";
}

}  // namespace host
