#pragma once

namespace host::cli {

// What the program says to the shell; also in --help.
enum ExitCode : int {
  kDone = 0,
  kFailed = 1,
  kWrongInput = 2,      // wrong usage or input; no chip has been touched
  kErrorsReported = 3,  // done, but errors were reported on the way
  kDiffers = 4,         // the chip differs from the images, or is not blank
  kInterrupted = 130    // as shells say it of a program that SIGINT ended
};

}  // namespace host::cli
