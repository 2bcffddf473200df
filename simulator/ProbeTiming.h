#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "VirtualClock.h"

namespace simulator {

// What a debug probe costs: each register access and each memory transfer takes one round trip, and each
// 32-bit word in it takes the wire's 46 clocks (request, turnaround, acknowledge, data, parity).
struct ProbeTiming {
  std::uint64_t wireHz = 10'000'000;
  Nanoseconds roundTrip = 150 * kMicrosecond;
  Nanoseconds connect = 10 * kMillisecond;  // connecting or reconnecting a core: longer than the ROM's boot
  Nanoseconds resetPulse = 10 * kMillisecond;  // the reset line held low

  // Wire time of `words` words in one transfer.
  [[nodiscard]] Nanoseconds WireTime(std::uint64_t words) const { return words * 46 * kSecond / wireHz; }
};

// "hs": a high-speed probe, 10 MHz wire and 0.15 ms a round trip. "fs": a full-speed one, 4 MHz and 1 ms.
// Nothing for any other name.
std::optional<ProbeTiming> FindProbeTiming(std::string_view name);

}  // namespace simulator
