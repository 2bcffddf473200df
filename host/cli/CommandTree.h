#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace host::cli {

// The verbs and options as they are told to the argument parser, for all that must not differ from it: the
// manual page and the completion of what is typed in a shell.

// The verbs of a program, or of a verb that is a group of verbs.
std::vector<const CLI::App*> VerbsOf(const CLI::App& app);

// Those that are shown in --help, also the positional ones and those of groups, in its order.
std::vector<const CLI::Option*> OptionsOf(const CLI::App& app);

// Whether a value follows its name; none does behind a flag.
bool TakesValue(const CLI::Option& option);

}  // namespace host::cli
