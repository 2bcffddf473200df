#pragma once

#include <cstdint>

namespace host {

// What went to and fro between the host and a probe.
struct Traffic {
  std::uint64_t roundTrips = 0;  // how often the probe was asked something while it had nothing to do
  std::uint64_t packets = 0;
  std::uint64_t bytes = 0;  // both ways
};

}  // namespace host
