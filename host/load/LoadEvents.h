#pragma once

#include <cstdint>
#include <functional>
#include <variant>

#include "host/load/LoadRecord.h"

namespace host {

// What happens during a load, in the order it happens; terminal and progress bar read this one stream.

struct LoadPlanned {
  std::uint64_t wireBytes = 0;  // about what will cross the wire; 0 when that cannot be told
};
struct PhaseStarted {
  Phase phase = Phase::Identify;
};
struct BytesMoved {
  std::uint64_t bytes = 0;      // over the wire since the load began
  std::uint64_t elapsedNs = 0;  // of the probe's clock, since the load began
};
struct LoadEnded {};

using LoadEvent = std::variant<LoadPlanned, PhaseStarted, BytesMoved, LoadMessage, LoadEnded>;
using LoadEventSink = std::function<void(const LoadEvent&)>;

}  // namespace host
