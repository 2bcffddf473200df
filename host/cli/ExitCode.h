#pragma once

namespace host::cli {

// What the program says to the shell; also in --help.
enum ExitCode : int {
  kDone = 0,
  kFailed = 1,
  kWrongInput = 2,     // wrong usage or input; no chip file has been touched
  kErrorsReported = 3  // done, but the plug-in reported errors on the way
};

}  // namespace host::cli
