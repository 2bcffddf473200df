#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <exception>

#include "host/cli/ExitCode.h"
#include "host/cli/Options.h"
#include "host/cli/Output.h"
#include "host/cli/Verbs.h"
#include "host/device/InputError.h"

namespace {

using namespace host;
using namespace host::cli;

const constexpr char* kFooter =
    "Exit codes:\n"
    "  0  done\n"
    "  1  failed\n"
    "  2  wrong usage or input; no chip file was touched\n"
    "  3  done, but errors were reported\n";

void AddVerbs(CLI::App& program, Options& options) {
  AddLoad(program, options);
  AddVerify(program, options);
  AddDump(program, options);
  AddInfo(program, options);
  AddErase(program, options);
  AddBlankCheck(program, options);
  AddHsm(program, options);
  AddUnlock(program, options);
  AddOperation(program, options);
  AddScript(program, options);
  AddDevices(program, options);
  AddProperties(program, options);
  AddExplain(program, options);
}

int Fail(const Options& options, const std::string& text, ExitCode exitCode) {
  Complain(text);
  if (options.json) PrintJson({{"exit_code", static_cast<int>(exitCode)}, {"error", text}});
  return exitCode;
}

int Run(int argc, char** argv) {
  CLI::App program("Programs Serin and Corvel chips through a flash-loader plug-in.", "tovik-flash");
  program.footer(kFooter);
  program.set_version_flag("--version", "tovik-flash " TOVIK_VERSION);
  program.require_subcommand(1);
  Options options;
  AddVerbs(program, options);
  try {
    program.parse(argc, argv);
  } catch (const CLI::Success& request) {
    return program.exit(request);  // --help, --version
  } catch (const CLI::ParseError& error) {
    return Fail(options, std::string(error.what()) + " (see --help)", kWrongInput);
  }

  try {
    return options.run();
  } catch (const InputError& error) {
    return Fail(options, error.what(), kWrongInput);
  } catch (const std::exception& error) {
    return Fail(options, error.what(), kFailed);
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    fmt::print(stderr, "tovik-flash: {}\n", error.what());
    return kFailed;
  }
}
