#pragma once

#include <span>
#include <string>

namespace CLI {
class App;
}

namespace host::cli {

// What the last of `words`, which stand behind the program's name on a command line that is being typed, may
// become: a line each, with its meaning behind a tab. Nothing where anything goes, as a file's name does.
std::string Completions(const CLI::App& program, std::span<const std::string> words);

}  // namespace host::cli
