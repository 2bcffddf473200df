#pragma once

#include <cstdio>
#include <cstdlib>

// A broken promise between host and plug-in, or inside the plug-in, stops the process. Unlike assert() this
// stays active in release builds: going on would program the wrong bytes into somebody's board.
// `expression` and `file` are what the message names.
inline void AssertContract(bool holds, const char* expression, const char* file) {
  if (holds) return;
  std::fprintf(stderr, "%s: Assertion `%s' failed.\n", file, expression);
  std::abort();
}
