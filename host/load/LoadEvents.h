#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "host/load/LoadReport.h"

namespace host {

// What happens during a load, in the order it happens; the terminal, the progress bar and the
// machine-readable result all read this one stream.

struct LoadPlanned {
  LoadMode mode = LoadMode::Program;
  std::vector<RegionReport> regions;
  std::uint64_t wireBytes = 0;  // about what will cross the wire; 0 when that cannot be told
};
struct RegionStarted {
  RegionReport region;
};
struct BytesMoved {
  std::uint64_t bytes = 0;      // over the wire since the load began
  std::uint64_t elapsedNs = 0;  // of the probe's clock, since the load began
};
// All blocks of the region are with the plug-in. Only those of MAIN flash are on the chip by then.
struct RegionDone {
  RegionReport region;
};
struct LoadFinished {
  LoadReport report;
};
struct LoadFailed {
  LoadReport report;  // with `error`
};

using LoadEvent =
    std::variant<LoadPlanned, RegionStarted, BytesMoved, RegionDone, LoadMessage, LoadFinished, LoadFailed>;
using LoadEventSink = std::function<void(const LoadEvent&)>;

}  // namespace host
