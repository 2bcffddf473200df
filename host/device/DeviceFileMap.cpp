#include <fmt/format.h>

#include <algorithm>
#include <limits>

#include "host/device/DeviceFileParts.h"
#include "host/device/Number.h"

namespace host {
namespace {

// The facts by name. They are read as the plug-in reads them: hexadecimal, with or without 0x.
class Facts {
 public:
  Facts(const XmlText& xmlText, const pugi::xml_node& root, const std::vector<FlashProperty>& all)
      : xml(xmlText), node(xml.Only(root, "facts")), properties(all) {}

  [[nodiscard]] std::uint32_t Number(std::string_view name, std::uint32_t most = kAny) const {
    const std::string& value = Value(name);
    const auto number = ParseHexNumber(value);
    if (!number || *number > kAny) Refuse(name, value, "a hexadecimal number of 32 bits");
    if (*number > most) Refuse(name, value, fmt::format("at most 0x{:x}", most));
    return static_cast<std::uint32_t>(*number);
  }

  // 0 for a region that the device does not have.
  [[nodiscard]] std::uint32_t NumberIfAny(std::string_view name, std::uint32_t most = kAny) const {
    return Find(name) != nullptr ? Number(name, most) : 0;
  }

  // The first number of OFFSET:LENGTH, as the crc32Info facts are written.
  [[nodiscard]] std::uint32_t Offset(std::string_view name) const {
    const std::string_view value = Value(name);
    const std::size_t colon = std::min(value.find(':'), value.size());
    const auto offset = ParseHexNumber(value.substr(0, colon));
    const auto length = ParseHexNumber(value.substr(std::min(colon + 1, value.size())));
    if (!offset || !length || *offset > kAny || *length > kAny) Refuse(name, value, "OFFSET:LENGTH");
    return static_cast<std::uint32_t>(*offset);
  }

 private:
  static constexpr std::uint32_t kAny = std::numeric_limits<std::uint32_t>::max();

  [[nodiscard]] const FlashProperty* Find(std::string_view name) const {
    const auto found = std::find_if(properties.begin(), properties.end(),
                                    [&](const FlashProperty& property) { return property.name == name; });
    return found == properties.end() ? nullptr : &*found;
  }

  [[nodiscard]] const std::string& Value(std::string_view name) const {
    const FlashProperty* const fact = Find(name);
    if (fact != nullptr) return fact->value;
    xml.Refuse(node, fmt::format("<facts> lacks the fact \"{}\"", name));
  }

  [[noreturn]] void Refuse(std::string_view name, std::string_view value, std::string_view wanted) const {
    xml.Refuse(node, fmt::format("the fact {}: \"{}\" is not {}", name, value, wanted));
  }

  const XmlText& xml;
  pugi::xml_node node;
  const std::vector<FlashProperty>& properties;
};

void RequireSoundMap(const XmlText& xml, const pugi::xml_node& node, const MemoryMap& map) {
  const struct {
    const char* name;
    AddressRange range;
  } regions[] = {
      {"main", map.main}, {"ccfg", map.ccfg}, {"scfg", map.scfg}, {"otp", map.otp}, {"ram", map.ram}};
  for (const auto& one : regions) {
    if (one.range.End() > 0x1'0000'0000) xml.Refuse(node, fmt::format("{} ends above 32 bits", one.name));
    for (const auto& other : regions)
      if (&one < &other && one.range.base < other.range.End() && other.range.base < one.range.End() &&
          one.range.size > 0 && other.range.size > 0)
        xml.Refuse(node, fmt::format("{} and {} overlap", one.name, other.name));
    if ((one.range.base & map.aliasMask) != 0 && one.range.size > 0)
      xml.Refuse(node, fmt::format("{} lies in the alias", one.name));
  }
  if (map.sectorSize == 0 || map.main.size % map.sectorSize != 0)
    xml.Refuse(node, "main is not a whole number of sectors");
  if (!map.ccfg.Contains(map.userRecord.base) || map.userRecord.End() > map.ccfg.End())
    xml.Refuse(node, "the user record does not lie in the ccfg");
}

}  // namespace

AddressRange ReadRange(const XmlText& xml, const pugi::xml_node& node) {
  xml.AllowOnly(node, {"base", "size"}, {});
  const AddressRange range{xml.Number(node, "base"), xml.Number(node, "size", kLargestMemory)};
  if (range.End() > 0x1'0000'0000) xml.Refuse(node, fmt::format("<{}> ends above 32 bits", node.name()));
  return range;
}

MemoryMap ReadMap(const XmlText& xml, const pugi::xml_node& root,
                  const std::vector<FlashProperty>& properties) {
  const pugi::xml_node node = xml.Only(root, "map");
  xml.AllowOnly(node, {"aliasMask"}, {"main", "ram"});
  const pugi::xml_node main = xml.Only(node, "main");
  xml.AllowOnly(main, {"size"}, {});
  const Facts facts(xml, root, properties);

  MemoryMap map;
  map.main = {0, xml.Number(main, "size", kLargestMemory)};
  map.ram = ReadRange(xml, xml.Only(node, "ram"));
  if (node.attribute("aliasMask")) map.aliasMask = xml.Number(node, "aliasMask");
  // The largest that the plug-in takes.
  map.sectorSize = facts.Number("SectorSize", 0x800);
  map.ccfg = {facts.Number("CcfgBase"), facts.Number("CcfgSize", 0x800)};
  map.userRecord = {map.ccfg.base + facts.Offset("ccfg.userRecord.crc32Info"),
                    facts.Number("CcfgUserRecordSize", 0x80)};
  map.scfg = {facts.NumberIfAny("ScfgBase"), facts.NumberIfAny("ScfgSize", 0x400)};
  map.otp = {facts.NumberIfAny("OtpBase"), facts.NumberIfAny("OtpSize")};
  RequireSoundMap(xml, node, map);
  return map;
}

}  // namespace host
