#include <CLI/CLI.hpp>
#include <memory>

#include "host/cli/LoadVerb.h"
#include "host/cli/Verbs.h"

namespace host::cli {

void AddVerify(CLI::App& program, Options& options) {
  auto load = std::make_shared<LoadOptions>();
  load->mode = LoadMode::Verify;
  CLI::App* verb = program.add_subcommand("verify", "Compare a chip with images and change nothing");
  AddImageOptions(*verb, options, *load);
  verb->add_flag("--all", load->findsAll, "Find every MAIN sector that differs, not only the first");
  verb->callback([&options, load] { options.run = [&options, load] { return RunLoad(options, *load); }; });
}

}  // namespace host::cli
