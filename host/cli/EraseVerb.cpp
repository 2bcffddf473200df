#include <CLI/CLI.hpp>
#include <memory>

#include "host/cli/PluginRun.h"
#include "host/cli/Verbs.h"

namespace host::cli {

void AddErase(CLI::App& program, Options& options) {
  auto retain = std::make_shared<bool>(false);
  CLI::App* verb = program.add_subcommand("erase", "Erase a chip");
  AddTargetOptions(*verb, options);
  verb->add_flag("--retain", *retain, "Keep the MAIN sectors that the chip's CCFG marks");
  verb->callback([&options, retain] {
    options.run = [&options, retain] {
      Target target(options);
      return RunOperation(options, target, *retain ? "ChipEraseRetain" : "Erase");
    };
  });
}

}  // namespace host::cli
