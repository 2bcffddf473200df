#pragma once

#include <string>
#include <string_view>

namespace CLI {
class App;
}

namespace host::cli {

// What stands at the end of --help: exit codes and environment.
std::string HelpFooter();

// The manual page in roff, of the same verbs and options as --help. `date` is that of the release.
std::string ManualPage(const CLI::App& program, std::string_view date);

}  // namespace host::cli
