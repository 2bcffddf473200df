#pragma once

#include <string>
#include <vector>

#include "host/cli/Options.h"

namespace host::cli {

struct LoadOptions {
  TargetOptions target;
  std::vector<std::string> images;  // IMAGE[@ADDRESS]
  bool verifies = false;            // what the settings may ask for as well
  bool isStrict = false;            // a warning before the load refuses it
  bool isDryRun = false;
  bool ifDifferent = false;   // nothing is done to a chip that holds the images already
  bool findsAll = false;      // all differences, not only the first
  bool allowOutside = false;  // bytes in no memory are handed on
  bool noProgress = false;
  bool allProbes = false;  // as boards
  bool watches = false;    // loads again whenever an image changes
  std::string report;      // page to be written; empty: none
};

// Options that loading and verifying share.
void AddImageOptions(CLI::App& verb, LoadOptions& load);

// One load, or one of each board, from the images to the summary; returns the ExitCode. Throws InputError
// before anything is done.
int RunLoad(const LoadOptions& load, Output& output);

}  // namespace host::cli
