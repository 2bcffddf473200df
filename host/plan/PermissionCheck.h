#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "host/plan/Preflight.h"

namespace host {

// A nibble of a configuration that keeps the chip open while it holds its safe value.
struct Permission {
  std::string_view name;
  std::uint32_t offset = 0;
  unsigned held = 0;
  unsigned safe = 0;
};

// The entries "name:0x12H:value" of `list` with what `bytes` hold there. Left out is what lies behind them or
// is not of that form: what descriptions hold is checked where they are read.
std::vector<Permission> PermissionsIn(std::string_view list, std::span<const std::uint8_t> bytes);

// Refuses a CCFG or SCFG that the plug-in's permission check would refuse, which it does when MAIN flash is
// programmed already.
void CheckPermissions(const LoadPlan& plan, const PropertyStore& settings, Preflight& found);

}  // namespace host
