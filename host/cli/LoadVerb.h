#pragma once

#include <string>
#include <vector>

#include "host/cli/Options.h"
#include "host/load/LoadRecord.h"

namespace host::cli {

struct LoadOptions {
  std::vector<std::string> images;  // IMAGE[@ADDRESS]
  LoadMode mode = LoadMode::Program;
  bool isStrict = false;  // a warning before the load refuses it
  bool isDryRun = false;
  bool findsAll = false;  // differing ranges, not only the first
};

// Options that loading and verifying share.
void AddImageOptions(CLI::App& verb, Options& options, LoadOptions& load);

// One load from the images to the summary; returns the ExitCode. Throws InputError before anything is done.
int RunLoad(const Options& options, const LoadOptions& load);

}  // namespace host::cli
