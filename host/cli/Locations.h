#pragma once

#include <filesystem>

namespace host::cli {

// Where the device descriptions are: the folder that TOVIK_DEVICES names, else "devices" above the program.
std::filesystem::path DevicesFolder();

// The plug-in that was built or installed with this program: libFlashDeviceTovik.so beside it, or in the
// folder above, or in "lib" there. The name alone where there is none, for the error text to name.
std::filesystem::path DefaultPlugin();

}  // namespace host::cli
