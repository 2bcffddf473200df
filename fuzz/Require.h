#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace fuzz {

// Stops the process, which is how a fuzzer reports an input, unless `holds`.
inline void Require(bool holds, const std::string& rule) {
  if (holds) return;
  std::fprintf(stderr, "Broken rule: %s\n", rule.c_str());
  std::abort();
}

}  // namespace fuzz
