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

// A folder that is named as it is seen from the program's own, so that an installation can be moved.
std::filesystem::path Installed(const char* folder) {
  return (ProgramFolder() / folder).lexically_normal();
}

}  // namespace

std::filesystem::path DevicesFolder() {
  if (const char* folder = std::getenv("TOVIK_DEVICES")) return folder;
  std::filesystem::path installed = Installed(TOVIK_INSTALLED_DEVICES);  // not const, to be moved out
  if (std::filesystem::is_directory(installed)) return installed;
  for (std::filesystem::path above = ProgramFolder(); above.has_relative_path(); above = above.parent_path())
    if (std::filesystem::is_directory(above / "devices")) return above / "devices";
  return ProgramFolder() / "devices";
}

std::filesystem::path DefaultPlugin() {
  const std::filesystem::path folder = ProgramFolder();
  for (const std::filesystem::path& candidate :
       {Installed(TOVIK_INSTALLED_PLUGINS) / kPluginFile, folder.parent_path() / kPluginFile})
    if (std::filesystem::exists(candidate)) return candidate;
  return folder / kPluginFile;
}

}  // namespace host::cli
