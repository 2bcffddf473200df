#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/plugin/PluginLibrary.h"

namespace bench {

// Time that a load into the MAIN flash of a simulated chip takes on the chip's clock, from reset to the end,
// through the named probe.
double ModelledSeconds(const host::PluginLibrary& library, const std::string& probeName,
                       const std::vector<std::uint8_t>& image);

// What the probe's wire carries when words follow one another without a gap.
double WireBytesPerSecond(const std::string& probeName);

}  // namespace bench
