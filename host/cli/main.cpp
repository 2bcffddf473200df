#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/cli/Completion.h"
#include "host/cli/Config.h"
#include "host/cli/ExitCode.h"
#include "host/cli/Interrupt.h"
#include "host/cli/Manual.h"
#include "host/cli/Output.h"
#include "host/cli/Password.h"
#include "host/cli/Target.h"
#include "host/cli/Verbs.h"
#include "host/device/InputError.h"
#include "host/device/Text.h"

namespace {

using namespace host;
using namespace host::cli;

void AddVerbs(CLI::App& program, Job& chosen) {
  AddLoad(program, chosen);
  AddVerify(program, chosen);
  AddDump(program, chosen);
  AddInfo(program, chosen);
  AddErase(program, chosen);
  AddBlankCheck(program, chosen);
  AddHsm(program, chosen);
  AddUnlock(program, chosen);
  AddOperation(program, chosen);
  AddScript(program, chosen);
  AddGdbserver(program, chosen);
  AddServe(program, chosen);
  AddProbes(program, chosen);
  AddCheckPlugin(program, chosen);
  AddDevices(program, chosen);
  AddProperties(program, chosen);
  AddExplain(program, chosen);
}

// The verb as it was typed: the first argument that is no option.
std::string TypedVerb(const std::vector<std::string>& arguments) {
  const auto verb = std::find_if(arguments.begin(), arguments.end(),
                                 [](const std::string& argument) { return !argument.starts_with('-'); });
  return verb == arguments.end() ? "" : *verb;
}

void RequireKnownVerb(const CLI::App& program, const std::string& typed) {
  if (typed.empty()) throw InputError("which verb? tovik-flash --help lists them");
  std::vector<std::string> known;
  for (const CLI::App* verb : program.get_subcommands({})) known.push_back(verb->get_name());
  if (std::find(known.begin(), known.end(), typed) != known.end()) return;
  const std::vector<std::string> nearest = NearestNames(typed, known, 1);
  throw InputError(fmt::format("there is no verb \"{}\"{} (see --help)", typed,
                               nearest.empty() ? "" : fmt::format("; do you mean \"{}\"?", nearest.front())));
}

int Fail(Output& output, const std::string& verb, const std::string& text, ExitCode exitCode) {
  output.Complain(text);
  return output.Finish(verb, exitCode, text);
}

// What the installation asks of the program, not its users: the manual page, and what a shell may complete.
std::optional<std::string> ForShell(const CLI::App& program, const std::vector<std::string>& arguments) {
  if (arguments.empty()) return {};
  if (arguments.front() == "--complete") return Completions(program, std::span(arguments).subspan(1));
  if (arguments.front() == "--manual" && arguments.size() == 2) return ManualPage(program, arguments.back());
  return {};
}

int Run(const std::vector<std::string>& arguments, Output& output) {
  CLI::App program("Programs Serin and Corvel chips through a flash-loader plug-in.", "tovik-flash");
  program.footer(HelpFooter());
  program.set_version_flag("--version", kProgram);
  program.require_subcommand(1);
  program.fallthrough();  // so that --config may stand behind the verb
  const std::string verb = TypedVerb(arguments);
  Job chosen;
  try {
    AddConfig(program, verb);
    AddVerbs(program, chosen);
    if (const auto text = ForShell(program, arguments)) {
      fmt::print("{}", *text);
      return kDone;
    }
    const bool isAboutProgram =
        std::any_of(arguments.begin(), arguments.end(), [](const std::string& argument) {
          return argument == "--help" || argument == "-h" || argument == "--version";
        });
    if (!isAboutProgram) RequireKnownVerb(program, verb);
    program.parse(std::vector<std::string>(arguments.rbegin(),
                                           arguments.rend()));  // the parser takes them from the back
  } catch (const CLI::Success& request) {
    (void)program.exit(request);  // --help, --version
    return output.Finish(verb, kDone);
  } catch (const CLI::ParseError& error) {
    return Fail(output, verb, WithoutPasswords(std::string(error.what()) + " (see --help)", arguments),
                kWrongInput);
  } catch (const InputError& error) {
    return Fail(output, "", error.what(), kWrongInput);
  }

  try {
    return chosen(output);
  } catch (const InputError& error) {
    return Fail(output, verb, WithoutPasswords(error.what(), arguments), kWrongInput);
  } catch (const std::exception& error) {
    return Fail(output, verb, error.what(), kFailed);
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    Output output;
    // Also for what is wrong with the arguments themselves.
    if (std::find(arguments.begin(), arguments.end(), "--json") != arguments.end()) output.UseJson();
    WatchSignals();
    EndWithJson(output.IsJson());
    return Run(arguments, output);
  } catch (const std::exception& error) {
    fmt::print(stderr, "tovik-flash: {}\n", error.what());
    return kFailed;
  }
}
