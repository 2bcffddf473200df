#include "host/cli/WatchedLoad.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <cstdio>

#include "host/cli/ExitCode.h"
#include "host/cli/Output.h"
#include "host/cli/Password.h"
#include "host/device/InputError.h"
#include "host/image/ImageFile.h"
#include "host/image/ImageWatch.h"

namespace host::cli {

namespace {

// An image that is not whole is soon followed by one that is, and a probe may be plugged in again.
int LoadAgain(const LoadOptions& load, Output& output) {
  try {
    return RunLoad(load, output);
  } catch (const std::exception& error) {
    output.Complain(error.what());
    return kFailed;
  }
}

}  // namespace

int LoadWatched(const LoadOptions& load, Output& output) {
  if (output.IsJson())
    throw InputError("--watch has no end, and --json prints one document at the end: only one of them");
  std::vector<std::string> names;
  for (const std::string& image : load.images) names.push_back(ImagePath(image));
  LoadOptions each = load;
  each.watches = false;
  each.target.password = AskedNow(load.target.password);

  for (bool isFirst = true;; isFirst = false) {
    const ImageWatch watch({names.begin(), names.end()});
    each.ifDifferent = load.ifDifferent || !isFirst;
    const int exitCode = isFirst ? RunLoad(each, output) : LoadAgain(each, output);
    if (exitCode == kInterrupted) return exitCode;
    output.Say(fmt::format("\nWaiting for a change of {}; Ctrl-C ends\n", fmt::join(names, ", ")));
    if (std::fflush(stdout) != 0) return output.Finish("load", kFailed);
    watch.Wait();
    output.Say("\n");
  }
}

}  // namespace host::cli
