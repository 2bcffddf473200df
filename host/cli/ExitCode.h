#pragma once

#include <algorithm>
#include <iterator>

namespace host::cli {

// What the program says to the shell; also in --help.
enum ExitCode : int {
  kDone = 0,
  kFailed = 1,
  kWrongInput = 2,      // wrong usage or input; no chip has been touched
  kErrorsReported = 3,  // done, but errors were reported on the way
  kDiffers = 4,         // the chip differs from the images, or is not blank; a plug-in breaks its contract
  kInterrupted = 130    // as shells say it of a program that SIGINT ended
};

// What is said of several boards at once: the worst of theirs, in this order.
inline constexpr ExitCode kFromBestToWorst[] = {kDone,   kErrorsReported, kDiffers,
                                                kFailed, kWrongInput,     kInterrupted};

constexpr bool IsWorse(ExitCode one, ExitCode other) {
  return std::find(std::begin(kFromBestToWorst), std::end(kFromBestToWorst), one) >
         std::find(std::begin(kFromBestToWorst), std::end(kFromBestToWorst), other);
}

}  // namespace host::cli
