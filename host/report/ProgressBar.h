#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "host/load/LoadEvents.h"

namespace host {

// One line that is redrawn while a load runs: share done, bytes over the wire, rate and time left, both by
// the probe's clock.
class ProgressBar {
 public:
  // Draws to `stream`, which must be a terminal.
  explicit ProgressBar(std::FILE* stream) : out(stream) {}

  void Take(const LoadEvent& event);
  // Wipes the line, so that another can be written; the next event draws it again.
  void Clear();

  // The line for so many of `expected` bytes after so long; without line end.
  static std::string Line(std::uint64_t bytes, std::uint64_t expected, std::uint64_t elapsedNs);

 private:
  void Draw(const std::string& line);

  std::FILE* out;
  std::uint64_t expected = 0;
  int shownPermille = -1;  // redrawn only when it changes: a load moves bytes some thousand times
};

}  // namespace host
