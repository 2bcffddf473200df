#include <CLI/CLI.hpp>

#include "host/cli/PluginRun.h"
#include "host/cli/Verbs.h"

namespace host::cli {

void AddBlankCheck(CLI::App& program, Options& options) {
  CLI::App* verb =
      program.add_subcommand("blank-check", "Tell whether MAIN flash and CCFG are blank; fails if not");
  AddTargetOptions(*verb, options);
  verb->callback([&options] {
    options.run = [&options] {
      Target target(options);
      return RunOperation(options, target, "BlankCheck", [](PluginAnswer& answer) {
        if (!answer.Said("Blank Check: Device flash is blank")) answer.error = "the chip is not blank";
      });
    };
  });
}

}  // namespace host::cli
