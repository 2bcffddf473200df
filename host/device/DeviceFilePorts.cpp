#include <fmt/format.h>

#include <string>
#include <utility>

#include "host/device/DeviceFileParts.h"

namespace host {

// What is given replaces the family's ports as a whole, so it must name every register that they name.
AccessPorts ReadPorts(const XmlText& xml, const pugi::xml_node& root) {
  AccessPorts ports;
  const pugi::xml_node node = xml.OnlyIfAny(root, "ports");
  if (!node) return ports;
  xml.AllowOnly(node, {"memory"}, {"port"});
  const std::vector<PortRegister> needed = std::exchange(ports.registers, {});
  ports.memory = static_cast<std::uint8_t>(xml.Number(node, "memory", 0xFF));
  for (const pugi::xml_node& port : node.children()) {
    xml.AllowOnly(port, {"number"}, {"register"});
    const auto number = static_cast<std::uint8_t>(xml.Number(port, "number", 0xFF));
    for (const pugi::xml_node& one : port.children()) {
      xml.AllowOnly(one, {"name", "offset"}, {});
      const std::string name = xml.Text(one, "name");
      const auto offset = static_cast<std::uint8_t>(xml.Number(one, "offset", 0xFF));
      if (offset % 4 != 0) xml.Refuse(one, fmt::format("the offset of {} is no multiple of 4", name));
      if (ports.Find(name) != nullptr) xml.Refuse(one, fmt::format("the register {} is given twice", name));
      ports.registers.push_back({name, number, offset});
    }
  }
  for (const PortRegister& one : needed)
    if (ports.Find(one.name) == nullptr)
      xml.Refuse(node, fmt::format("<ports> lacks the register {}", one.name));
  return ports;
}

}  // namespace host
