#pragma once

#include <vector>

#include "host/cli/BoardLoad.h"

namespace host::cli {

// Writes the page about these loads where the user wants one, and tells of it at `output` when it cannot be.
// Returns what the program ends with: `code`, or what stands for errors that were reported.
ExitCode WriteReport(const LoadOptions& load, const std::vector<BoardLoad*>& boards, ExitCode code,
                     Output& output);

}  // namespace host::cli
