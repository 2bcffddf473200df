#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/device/DeviceDescription.h"
#include "host/device/PropertyStore.h"

namespace host {

// A field of CCFG or SCFG in words.
struct ConfigurationField {
  std::string name;
  std::uint32_t address = 0;
  std::string value;
  std::string meaning;
};

// What a configuration is read from. An empty sector is none.
struct Configuration {
  std::span<const std::uint8_t> ccfg;
  std::span<const std::uint8_t> scfg;
  bool isOnChip = false;  // else as images give it, of which a load may still put the CRC words right
};

// The fields that the device description knows: what keeps the chip open, who may debug it, which sectors a
// chip erase may be asked to keep, and CRC words on a chip. Nothing of a sector that is blank.
std::vector<ConfigurationField> ConfigurationFields(const DeviceDescription& device,
                                                    const PropertyStore& settings,
                                                    const Configuration& configuration);

}  // namespace host
