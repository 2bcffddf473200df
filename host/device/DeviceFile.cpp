#include "host/device/DeviceDescription.h"
#include "host/device/DeviceFileParts.h"
#include "host/device/FileBytes.h"

namespace host {

DeviceDescription ReadDeviceDescription(const std::filesystem::path& file) {
  return ParseDeviceDescription(ReadWholeFile(file, kLargestDeviceFile), file);
}

DeviceDescription ParseDeviceDescription(std::string_view text, const std::filesystem::path& file) {
  const XmlText xml(text, file);
  const pugi::xml_node root = xml.Root("device");
  xml.AllowOnly(root, {"family"}, {"description", "map", "facts", "include", "group", "ports", "chip"});
  const pugi::xml_node description = xml.Only(root, "description");
  xml.AllowOnly(description, {}, {});

  DeviceDescription device;
  device.name = file.stem().string();
  device.family = xml.Text(root, "family");
  device.description = description.text().get();
  device.file = file;
  device.properties = ReadProperties(xml, root);
  device.map = ReadMap(xml, root, device.properties);
  device.ports = ReadPorts(xml, root);
  device.chip = ReadChip(xml, root);
  return device;
}

}  // namespace host
