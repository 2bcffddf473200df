#pragma once

#include <string>

namespace CLI {
class App;
}

namespace host::cli {

// Lets options come from a file, --config FILE or TOVIK_CONFIG: NAME=VALUE a line, for every verb that has
// the option, or under a [verb] heading for that one. The command line comes first, then the file, then the
// environment. Throws InputError for a TOVIK_CONFIG that is not there.
void AddConfig(CLI::App& program, const std::string& verb);

}  // namespace host::cli
