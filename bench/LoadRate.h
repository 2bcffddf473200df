#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/plugin/PluginLibrary.h"

namespace bench {

struct ModelledLoad {
  double seconds = 0;            // on the host's modelled clock, from reset to the end
  std::uint64_t roundTrips = 0;  // that the host waited for with nothing under way
  std::uint64_t packets = 0;
  double realSeconds = 0;
  double cpuNs = 0;  // of this thread: plug-in, host, probe, simulated probe and chip
};

// A load into the MAIN flash of a simulated chip through the named probe.
ModelledLoad MeasureModelledLoad(const host::PluginLibrary& library, const std::string& probeName,
                                 const std::vector<std::uint8_t>& image);

// What the probe's wire carries when words follow one another without a gap.
double WireBytesPerSecond(const std::string& probeName);

}  // namespace bench
