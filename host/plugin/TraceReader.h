#pragma once

#include <cstdint>
#include <filesystem>

#include "host/plugin/HostCall.h"
#include "host/plugin/Trace.h"

namespace host {

// What a trace says of itself.
struct TraceFacts {
  TraceHeader header;
  std::uint64_t lines = 0;
  bool isCut = false;  // in its last line, which is left out
};

// Plays a recorded trace to an observer, call by call, as the session itself did. What the trace leaves out
// of a transfer is zeros, and so are passwords. Throws InputError, naming the line, for a file that is no
// trace or of a version to come; what comes before that line has been played then.
TraceFacts ReplayTrace(const std::filesystem::path& file, HostCallObserver& observer);

}  // namespace host
