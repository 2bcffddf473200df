#include "host/device/DeviceDescription.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/device/InputError.h"

namespace host {
namespace {

template <typename Named>
const Named* FindNamed(const std::vector<Named>& all, std::string_view name) {
  const auto found = std::find_if(all.begin(), all.end(), [&](const Named& one) { return one.name == name; });
  return found == all.end() ? nullptr : &*found;
}

}  // namespace

const FlashProperty* DeviceDescription::Find(std::string_view propertyName) const {
  return FindNamed(properties, propertyName);
}

const PortRegister* AccessPorts::Find(std::string_view name) const {
  return FindNamed(registers, name);
}

std::vector<std::filesystem::path> ListDeviceFiles(const std::filesystem::path& folder) {
  std::error_code error;
  std::vector<std::filesystem::path> files;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error))
    if (entry->path().extension() == ".xml") files.push_back(entry->path());
  if (error)
    throw InputError(fmt::format("{}: cannot be read as a folder of device descriptions: {}", folder.string(),
                                 error.message()));
  std::sort(files.begin(), files.end());
  return files;
}

std::filesystem::path FindDeviceFile(std::string_view nameOrFile, const std::filesystem::path& folder) {
  // A path first, so that a broken installation does not keep anyone from his own file.
  std::filesystem::path asFile(nameOrFile);  // not const, so that it can be moved out
  std::error_code ignored;
  if (asFile.extension() == ".xml" && std::filesystem::is_regular_file(asFile, ignored)) return asFile;
  std::vector<std::string> names;
  for (const std::filesystem::path& file : ListDeviceFiles(folder)) {
    if (file.stem() == asFile) return file;
    names.push_back(file.stem().string());
  }
  throw InputError(fmt::format("no device \"{}\": it is neither a description file (*.xml) nor one of {}",
                               nameOrFile, fmt::join(names, ", ")));
}

}  // namespace host
