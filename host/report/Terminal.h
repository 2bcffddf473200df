#pragma once

#include <cstddef>
#include <cstdio>
#include <optional>

namespace host {

// The terminal that a stream leads to.
struct Terminal {
  std::size_t width = 80;
  std::size_t height = 24;
  bool isDumb = false;  // nothing can be drawn a second time
};

// Nothing when the stream leads to none.
std::optional<Terminal> TerminalOf(std::FILE* stream);

}  // namespace host
