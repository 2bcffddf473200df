#pragma once

#include <string>
#include <string_view>

#include "host/device/MemoryMap.h"

namespace host {

// How the findings before a load name memories and addresses.

std::string_view MemoryTitle(Region region);  // "MAIN flash"
std::string RangeText(AddressRange range);    // "0x00008000..0x0000ffff"; "none" for an empty range
AddressRange RangeOf(const MemoryMap& map, Region region);

}  // namespace host
