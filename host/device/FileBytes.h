#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace host {

// The whole content of a file that the user named. Throws InputError "FILE: what is wrong" for one that is
// not there, is a folder or a device, cannot be read, or is larger than `largest` bytes: that is seen before
// anything is read, so that a wrong file is refused at once.
std::string ReadWholeFile(const std::filesystem::path& file, std::uintmax_t largest);

}  // namespace host
