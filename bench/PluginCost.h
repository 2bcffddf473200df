#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/plugin/PluginLibrary.h"

namespace bench {

// What one load into MAIN flash cost, from its ResetSettings(LoadStart) to its ResetSettings(LoadEnd).
struct LoadCost {
  double cpuNs = 0;           // of this process: the plug-in and the few nanoseconds a call of the null host
  std::size_t peakBytes = 0;  // heap above what was live before the load
  std::uint64_t hostCalls = 0;
};

// Loads `image` from address 0 on, cut into blocks of the given numbers of sectors, against a null host.
// Throws std::runtime_error with the plug-in's text when it fails.
LoadCost MeasureLoad(const host::PluginLibrary& library, const std::vector<std::uint8_t>& image,
                     const std::vector<std::size_t>& blockSectors);

// As long as the acknowledgement numbers allow, the way a host would cut that many sectors.
std::vector<std::size_t> LongBlocks(std::size_t sectors);

// Processor time of one CalcCRC32 over the image.
double MeasureCrcNs(const std::vector<std::uint8_t>& image);

}  // namespace bench
