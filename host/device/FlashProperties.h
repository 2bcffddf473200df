#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "host/device/MemoryMap.h"

namespace host {

// A device description: one Flash Properties XML file, as devices/ holds them. docs/devices.md gives
// the format. Addresses are 32-bit target addresses, sizes and offsets are bytes.

enum class PropertyType {
  Fixed,     // a fact of the device that the plug-in reads; nothing for a user to choose
  Bool,      // "1" or "0"
  Hex,       // a hexadecimal number, "0x" optional
  Text,      // free
  Choice,    // exactly one of `choices`
  Password,  // free; never shown, logged or traced
  File,      // a path, or empty
  Display,   // written by the plug-in for the user to read
};

std::string_view PropertyTypeName(PropertyType type);

// One property of the plug-in's host interface.
struct FlashProperty {
  std::string name;
  PropertyType type = PropertyType::Text;
  std::string value;                 // default of a setting, value of a fact
  std::vector<std::string> choices;  // of a Choice, at least one; else empty
  std::string meaning;               // one line for the user
  std::string group;                 // heading that the settings dialog would show it under
};

// `value` as the plug-in wants it: a Bool also takes true, false, on, off, yes and no. Throws InputError
// naming the property and what it takes when the value does not suit.
std::string NormalizedValue(const FlashProperty& property, std::string_view value);

// Bytes that a CRC-32 covers, counted from the start of their sector. The CRC word follows them.
struct CoveredRange {
  std::uint32_t offset = 0;
  std::uint32_t length = 0;
  bool operator==(const CoveredRange&) const = default;
};

// In which form a part's security module takes new firmware.
enum class HsmForm { None, Whole, Records };

// What the simulated part is made like. Stated in the description on its own, not derived from the
// properties, so that a wrong property meets a chip that disagrees.
struct ChipFacts {
  std::uint32_t deviceId = 0;  // CFG-AP DEVICEID: version 31..28, device 27..12
  std::uint32_t partId = 0;    // CFG-AP PARTID: variant 23..16, part number 15..0
  std::uint32_t lifeCycle = 0;
  std::uint32_t mainSize = 0;
  std::uint32_t sectorSize = 0;
  AddressRange ccfg;
  CoveredRange userRecord;  // inside the CCFG, its CRC word included
  AddressRange scfg;
  AddressRange otp;
  AddressRange ram;
  CoveredRange bootCrc, ccfgCrc, userRecordCrc, debugCrc;  // in the CCFG
  CoveredRange scfgCrc;                                    // in the SCFG
  std::uint32_t retainOffset = 0;                          // chip-erase-retain field, in the CCFG
  std::uint32_t retainWords = 0;
  std::uint32_t retainGroupShift = 0;         // lowest bit used in the field's second word
  std::uint32_t authorizationTypeOffset = 0;  // 1 byte, in the CCFG
  std::uint32_t authorizationIdOffset = 0;    // 8 bytes, most significant first
  std::uint32_t authorizationHashOffset = 0;  // 32 bytes, SHA-256
  HsmForm hsm = HsmForm::None;
};

struct DeviceDescription {
  std::string name;  // the file's name without ".xml"
  std::string family;
  std::string description;
  std::filesystem::path file;
  std::vector<FlashProperty> properties;  // names are unique
  MemoryMap map;
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
