#include "host/cli/Locations.h"

#include <cstdlib>
#include <system_error>

namespace host::cli {

namespace {

const constexpr char* kPluginFile = "libFlashDeviceTovik.so";

std::filesystem::path ProgramFolder() {
  std::error_code unreadable;
  return std::filesystem::read_symlink("/proc/self/exe", unreadable).parent_path();
}

}  // namespace

std::filesystem::path DevicesFolder() {
  if (const char* folder = std::getenv("TOVIK_DEVICES")) return folder;
  for (std::filesystem::path above = ProgramFolder(); above.has_relative_path(); above = above.parent_path())
    if (std::filesystem::is_directory(above / "devices")) return above / "devices";
  return ProgramFolder() / "devices";
}

std::filesystem::path DefaultPlugin() {
  const std::filesystem::path folder = ProgramFolder();
  for (const std::filesystem::path& candidate :
       {folder / kPluginFile, folder.parent_path() / kPluginFile, folder.parent_path() / "lib" / kPluginFile})
    if (std::filesystem::exists(candidate)) return candidate;
  return folder / kPluginFile;
}

}  // namespace host::cli
