#pragma once

#include <cstdint>
#include <pugixml.hpp>
#include <vector>

#include "host/device/DeviceDescription.h"
#include "host/device/XmlText.h"

namespace host {

// The readers of a description's parts, for DeviceFile.cpp. `root` is the <device>. Each throws InputError
// with file and line.

// Whatever the simulated part or the host would hold as a whole; larger ones are slips of the pen.
constexpr std::uint32_t kLargestMemory = 16U << 20;

// An upper bound of any description, and of a file of settings.
constexpr std::uintmax_t kLargestDeviceFile = 1U << 20;

// <facts>, <group> and <include>, in the file's order.
std::vector<FlashProperty> ReadProperties(const XmlText& xml, const pugi::xml_node& root);
// <map>, and the facts among `properties`.
MemoryMap ReadMap(const XmlText& xml, const pugi::xml_node& root,
                  const std::vector<FlashProperty>& properties);
AccessPorts ReadPorts(const XmlText& xml, const pugi::xml_node& root);
ChipFacts ReadChip(const XmlText& xml, const pugi::xml_node& root);

AddressRange ReadRange(const XmlText& xml, const pugi::xml_node& node);

}  // namespace host
