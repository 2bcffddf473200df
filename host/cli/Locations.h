#pragma once

#include <filesystem>

namespace host::cli {

// Where the device descriptions are: the folder that TOVIK_DEVICES names, else the one that was installed
// with this program, else "devices" above it, where it was built.
std::filesystem::path DevicesFolder();

// The plug-in that was installed with this program, or built: then it is in the folder above. A name beside
// the program where there is none, for the error text to name.
std::filesystem::path DefaultPlugin();

}  // namespace host::cli
