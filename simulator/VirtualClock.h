#pragma once

#include <cstdint>

namespace simulator {

// Spans of virtual time, in nanoseconds. Integers, so that a modelled load takes the same time on every run.
using Nanoseconds = std::uint64_t;

constexpr Nanoseconds kMicrosecond = 1'000;
constexpr Nanoseconds kMillisecond = 1'000'000;
constexpr Nanoseconds kSecond = 1'000'000'000;

// The one clock of chip and probe. Nothing but the wire, a host's sleep and a reset pulse moves it; the chip
// reckons from it how far its ROM and flash have come.
class VirtualClock {
 public:
  [[nodiscard]] Nanoseconds Now() const { return now; }
  void Advance(Nanoseconds span) { now += span; }

 private:
  Nanoseconds now = 0;
};

}  // namespace simulator
