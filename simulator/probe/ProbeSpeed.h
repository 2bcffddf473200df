#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "../VirtualClock.h"

namespace simulator {

// A debug probe's way to its host, and the fastest it drives the wire.
struct ProbeSpeed {
  std::size_t packetSize = 512;
  std::uint8_t packetCount = 4;             // that the probe takes before it has answered the first
  Nanoseconds latency = 75 * kMicrosecond;  // of a packet, one way
  std::uint64_t wireHz = 10'000'000;
  bool sendsWholeReports = false;  // packets are filled up with zeros to their full size
};

// "hs": bulk transfers over high-speed USB, 0.15 ms there and back. "fs": over full-speed USB, 1 ms. "hid":
// HID reports over full-speed USB, 1 ms each way. Nothing for any other name.
std::optional<ProbeSpeed> FindProbeSpeed(std::string_view name);

}  // namespace simulator
