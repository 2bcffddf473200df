#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "host/device/AccessPorts.h"
#include "host/device/ChipFacts.h"
#include "host/device/FlashProperty.h"
#include "host/device/MemoryMap.h"

namespace host {

// One device: a Flash Properties XML file, as devices/ holds them. docs/devices.md gives the format.
// Addresses are 32-bit target addresses, sizes and offsets are bytes.
struct DeviceDescription {
  std::string name;  // the file's name without ".xml"
  std::string family;
  std::string description;
  std::filesystem::path file;
  std::vector<FlashProperty> properties;  // names are unique
  MemoryMap map;
  AccessPorts ports;
  ChipFacts chip;

  // Null when there is no such property.
  [[nodiscard]] const FlashProperty* Find(std::string_view propertyName) const;
};

// Throws InputError naming the file and the line.
DeviceDescription ReadDeviceDescription(const std::filesystem::path& file);

// The same from memory; `file` names the text in errors, and its folder is where included files are sought.
DeviceDescription ParseDeviceDescription(std::string_view xml, const std::filesystem::path& file);

// The description files of a folder, sorted by name. Throws InputError when it cannot be read.
std::vector<std::filesystem::path> ListDeviceFiles(const std::filesystem::path& folder);

// The file that `nameOrFile` means: a name known in `folder` (without ".xml"), or a path to a file. Throws
// InputError listing the known names when it is neither.
std::filesystem::path FindDeviceFile(std::string_view nameOrFile, const std::filesystem::path& folder);

}  // namespace host
