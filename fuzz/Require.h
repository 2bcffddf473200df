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

// For rules that give the sentence that is broken, or an empty text.
inline void RequireKept(const std::string& brokenRule) {
  Require(brokenRule.empty(), brokenRule);
}

}  // namespace fuzz
