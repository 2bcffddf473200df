#include "ProbeSpeed.h"

namespace simulator {

std::optional<ProbeSpeed> FindProbeSpeed(std::string_view name) {
  if (name == "hs") return ProbeSpeed{};
  if (name == "fs") return ProbeSpeed{.packetSize = 64, .latency = 500 * kMicrosecond, .wireHz = 4'000'000};
  if (name == "hid")
    return ProbeSpeed{.packetSize = 64,
                      .packetCount = 1,
                      .latency = kMillisecond,
                      .wireHz = 4'000'000,
                      .sendsWholeReports = true};
  return std::nullopt;
}

}  // namespace simulator
