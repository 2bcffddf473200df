#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace host {

// The symbols that others would find in a shared library, as its file says: nothing of it is run. Throws
// InputError naming the file when it cannot be read, or is no shared library for this kind of machine.
std::vector<std::string> ExportsOf(const std::filesystem::path& library);

}  // namespace host
