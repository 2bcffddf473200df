#pragma once

#include <string>
#include <vector>

#include "host/cli/LoadVerb.h"

namespace host::cli {

// Whether the options speak of several boards, or of as many as there are.
[[nodiscard]] bool NamesSeveral(const LoadOptions& load);

// The target of each, in the order they were named, of every probe in the order they are found. Throws
// InputError for what cannot be said of several boards, and for one that was named twice.
std::vector<TargetOptions> BoardsOf(const LoadOptions& load);

// What the user calls it: its chip file, or its probe.
std::string BoardName(const TargetOptions& target);

}  // namespace host::cli
