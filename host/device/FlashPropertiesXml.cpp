#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <optional>
#include <pugixml.hpp>
#include <set>

#include "host/device/FlashProperties.h"
#include "host/device/InputError.h"
#include "host/device/Number.h"

namespace host {
namespace {

// One XML text and where it comes from. Every complaint names the file and the line.
class XmlText {
 public:
  XmlText(std::string_view xml, std::filesystem::path xmlFile) : text(xml), file(std::move(xmlFile)) {
    const pugi::xml_parse_result result =
        document.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
    if (!result) RefuseAt(result.offset, fmt::format("broken XML: {}", result.description()));
  }

  // The root, which must be called `name`.
  [[nodiscard]] pugi::xml_node Root(std::string_view name) const {
    const pugi::xml_node root = document.document_element();
    if (root.name() != name) Refuse(root, fmt::format("the root element must be <{}>", name));
    return root;
  }

  [[noreturn]] void Refuse(const pugi::xml_node& node, std::string_view problem) const {
    RefuseAt(node.offset_debug(), problem);
  }

  // A misspelled name would otherwise be a setting that silently does nothing.
  void AllowOnly(const pugi::xml_node& node, std::initializer_list<std::string_view> attributes,
                 std::initializer_list<std::string_view> children) const {
    for (const pugi::xml_attribute& attribute : node.attributes())
      if (std::find(attributes.begin(), attributes.end(), attribute.name()) == attributes.end())
        Refuse(node, fmt::format("<{}> has an unknown attribute \"{}\"", node.name(), attribute.name()));
    for (const pugi::xml_node& child : node.children()) {
      if (child.type() == pugi::node_element) {
        if (std::find(children.begin(), children.end(), child.name()) == children.end())
          Refuse(child, fmt::format("<{}> does not belong in <{}>", child.name(), node.name()));
      } else if (children.size() > 0) {
        Refuse(child, fmt::format("text does not belong in <{}>", node.name()));
      }
    }
  }

  // The one child of this name.
  [[nodiscard]] pugi::xml_node Only(const pugi::xml_node& node, const char* name) const {
    const pugi::xml_node child = node.child(name);
    if (!child) Refuse(node, fmt::format("<{}> lacks a <{}>", node.name(), name));
    if (const pugi::xml_node second = child.next_sibling(name))
      Refuse(second, fmt::format("<{}> has a second <{}>", node.name(), name));
    return child;
  }

  [[nodiscard]] std::string Text(const pugi::xml_node& node, const char* attribute) const {
    const pugi::xml_attribute found = node.attribute(attribute);
    if (!found) Refuse(node, fmt::format("<{}> lacks the attribute \"{}\"", node.name(), attribute));
    return found.value();
  }

  [[nodiscard]] std::uint32_t Number(const pugi::xml_node& node, const char* attribute) const {
    const std::string value = Text(node, attribute);
    const auto number = ParseNumber(value);
    if (!number || *number > 0xFFFF'FFFF)
      Refuse(node, fmt::format("{}=\"{}\" is not a number of 32 bits (decimal, or hexadecimal with 0x)",
                               attribute, value));
    return static_cast<std::uint32_t>(*number);
  }

  [[nodiscard]] const std::filesystem::path& File() const { return file; }

 private:
  [[noreturn]] void RefuseAt(std::ptrdiff_t offset, std::string_view problem) const {
    const auto end = text.begin() + std::clamp<std::ptrdiff_t>(offset, 0, std::ssize(text));
    throw InputError(
        fmt::format("{}:{}: {}", file.string(), 1 + std::count(text.begin(), end, '\n'), problem));
  }

  std::string text;
  std::filesystem::path file;
  pugi::xml_document document;
};

struct SettingType {
  std::string_view name;
  PropertyType type;
};
constexpr SettingType s_settingTypes[] = {
    {"bool", PropertyType::Bool},     {"hex", PropertyType::Hex},           {"text", PropertyType::Text},
    {"choice", PropertyType::Choice}, {"password", PropertyType::Password}, {"file", PropertyType::File},
};

std::string ReadFile(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::error_code ignored;
  if (!stream || !std::filesystem::is_regular_file(file, ignored))
    throw InputError(fmt::format("{}: cannot be read", file.string()));
  return {std::istreambuf_iterator<char>(stream), {}};
}

AddressRange ReadRange(const XmlText& xml, const pugi::xml_node& node) {
  xml.AllowOnly(node, {"base", "size"}, {});
  const AddressRange range{xml.Number(node, "base"), xml.Number(node, "size")};
  if (range.End() > 0x1'0000'0000) xml.Refuse(node, fmt::format("<{}> ends above 32 bits", node.name()));
  return range;
}

AddressRange ReadOptionalRange(const XmlText& xml, const pugi::xml_node& parent, const char* name) {
  return parent.child(name) ? ReadRange(xml, xml.Only(parent, name)) : AddressRange{};
}

// Collects the properties of a description and of the files it includes.
class PropertyReader {
 public:
  explicit PropertyReader(std::vector<FlashProperty>& destination) : properties(destination) {}

  void ReadFacts(const XmlText& xml, const pugi::xml_node& facts) {
    xml.AllowOnly(facts, {}, {"fact"});
    for (const pugi::xml_node& node : facts.children()) {
      xml.AllowOnly(node, {"name", "value", "meaning"}, {});
      Add(xml, node,
          {xml.Text(node, "name"),
           PropertyType::Fixed,
           xml.Text(node, "value"),
           {},
           xml.Text(node, "meaning"),
           "Device"});
    }
  }

  void ReadGroup(const XmlText& xml, const pugi::xml_node& group) {
    xml.AllowOnly(group, {"name"}, {"setting", "display"});
    const std::string title = xml.Text(group, "name");
    for (const pugi::xml_node& node : group.children()) {
      if (node.name() == std::string_view("display"))
        ReadDisplay(xml, node, title);
      else
        ReadSetting(xml, node, title);
    }
  }

  void ReadInclude(const XmlText& xml, const pugi::xml_node& include) {
    xml.AllowOnly(include, {"file"}, {});
    const std::filesystem::path name(xml.Text(include, "file"));
    const bool leavesFolder = std::find(name.begin(), name.end(), "..") != name.end();
    if (name.is_absolute() || leavesFolder)
      xml.Refuse(include, fmt::format("file=\"{}\" must lie in the description's own folder", name.string()));
    const std::filesystem::path file = xml.File().parent_path() / name;
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(file, ignored))
      xml.Refuse(include, fmt::format("there is no file \"{}\"", name.string()));
    const XmlText included(ReadFile(file), file);
    const pugi::xml_node root = included.Root("settings");
    included.AllowOnly(root, {}, {"group"});
    for (const pugi::xml_node& group : root.children()) ReadGroup(included, group);
  }

 private:
  void ReadDisplay(const XmlText& xml, const pugi::xml_node& node, const std::string& group) {
    xml.AllowOnly(node, {"name", "meaning"}, {});
    Add(xml, node,
        {xml.Text(node, "name"), PropertyType::Display, "--", {}, xml.Text(node, "meaning"), group});
  }

  void ReadSetting(const XmlText& xml, const pugi::xml_node& node, const std::string& group) {
    const std::string typeName = xml.Text(node, "type");
    const auto type = std::find_if(std::begin(s_settingTypes), std::end(s_settingTypes),
                                   [&](const SettingType& known) { return known.name == typeName; });
    if (type == std::end(s_settingTypes)) xml.Refuse(node, fmt::format("unknown type \"{}\"", typeName));
    FlashProperty setting{xml.Text(node, "name"),    type->type, xml.Text(node, "default"), {},
                          xml.Text(node, "meaning"), group};
    if (type->type == PropertyType::Choice) {
      xml.AllowOnly(node, {"name", "type", "default", "meaning"}, {"choice"});
      for (const pugi::xml_node& choice : node.children()) setting.choices.emplace_back(choice.text().get());
    } else {
      xml.AllowOnly(node, {"name", "type", "default", "meaning"}, {});
    }
    RequireFittingDefault(xml, node, setting);
    Add(xml, node, std::move(setting));
  }

  // The plug-in reads the default as it stands, so it must be in the plug-in's own spelling.
  static void RequireFittingDefault(const XmlText& xml, const pugi::xml_node& node,
                                    const FlashProperty& setting) {
    try {
      if (NormalizedValue(setting, setting.value) == setting.value) return;
    } catch (const InputError& error) {
      xml.Refuse(node, fmt::format("default of {}", error.what()));
    }
    xml.Refuse(node, fmt::format("default of {}: \"{}\" must be spelled as the plug-in spells it",
                                 setting.name, setting.value));
  }

  void Add(const XmlText& xml, const pugi::xml_node& node, FlashProperty property) {
    if (!names.insert(property.name).second)
      xml.Refuse(node, fmt::format("the property \"{}\" is given twice", property.name));
    properties.push_back(std::move(property));
  }

  std::vector<FlashProperty>& properties;
  std::set<std::string> names;
};

// --- what the properties say of the memory map ---------------------------------------------------------

std::uint32_t FactNumber(const XmlText& xml, const pugi::xml_node& facts, const DeviceDescription& device,
                         std::string_view name, std::optional<std::uint32_t> otherwise = std::nullopt) {
  const FlashProperty* const fact = device.Find(name);
  if (fact == nullptr && otherwise) return *otherwise;
  if (fact == nullptr) xml.Refuse(facts, fmt::format("<facts> lacks the fact \"{}\"", name));
  const auto number = ParseNumber(fact->value);
  if (!number || *number > 0xFFFF'FFFF || !fact->value.starts_with("0x"))
    xml.Refuse(facts, fmt::format("the fact {}: \"{}\" is not a 32-bit number with 0x", name, fact->value));
  return static_cast<std::uint32_t>(*number);
}

// offset:length, as the crc32Info facts are written.
CoveredRange FactRange(const XmlText& xml, const pugi::xml_node& facts, const DeviceDescription& device,
                       std::string_view name) {
  const FlashProperty* const fact = device.Find(name);
  if (fact == nullptr) xml.Refuse(facts, fmt::format("<facts> lacks the fact \"{}\"", name));
  const std::string_view value = fact->value;
  const std::size_t colon = std::min(value.find(':'), value.size());
  const auto offset = ParseNumber(value.substr(0, colon));
  const auto length = ParseNumber(value.substr(std::min(colon + 1, value.size())));
  if (!offset || !length || *offset > 0xFFFF'FFFF || *length > 0xFFFF'FFFF)
    xml.Refuse(facts, fmt::format("the fact {}: \"{}\" is not OFFSET:LENGTH", name, fact->value));
  return {static_cast<std::uint32_t>(*offset), static_cast<std::uint32_t>(*length)};
}

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

MemoryMap ReadMap(const XmlText& xml, const pugi::xml_node& root, const DeviceDescription& device) {
  const pugi::xml_node node = xml.Only(root, "map");
  const pugi::xml_node facts = xml.Only(root, "facts");
  xml.AllowOnly(node, {"aliasMask"}, {"main", "ram"});
  const auto fact = [&](std::string_view name, std::optional<std::uint32_t> otherwise = std::nullopt) {
    return FactNumber(xml, facts, device, name, otherwise);
  };

  MemoryMap map;
  const pugi::xml_node main = xml.Only(node, "main");
  xml.AllowOnly(main, {"size"}, {});
  map.main = {0, xml.Number(main, "size")};
  map.ram = ReadRange(xml, xml.Only(node, "ram"));
  if (node.attribute("aliasMask")) map.aliasMask = xml.Number(node, "aliasMask");
  map.sectorSize = fact("SectorSize");
  map.ccfg = {fact("CcfgBase"), fact("CcfgSize")};
  map.userRecord = {map.ccfg.base + FactRange(xml, facts, device, "ccfg.userRecord.crc32Info").offset,
                    fact("CcfgUserRecordSize")};
  map.scfg = {fact("ScfgBase", 0), fact("ScfgSize", 0)};
  map.otp = {fact("OtpBase", 0), fact("OtpSize", 0)};
  RequireSoundMap(xml, node, map);
  return map;
}

// --- the simulated part --------------------------------------------------------------------------------

CoveredRange ReadCrc(const XmlText& xml, const pugi::xml_node& sector, std::string_view covers) {
  for (const pugi::xml_node& crc : sector.children("crc")) {
    if (crc.attribute("covers").value() != covers) continue;
    xml.AllowOnly(crc, {"covers", "offset", "length"}, {});
    return {xml.Number(crc, "offset"), xml.Number(crc, "length")};
  }
  xml.Refuse(sector, fmt::format("<{}> lacks the <crc covers=\"{}\">", sector.name(), covers));
}

void ReadChipCcfg(const XmlText& xml, const pugi::xml_node& ccfg, ChipFacts& chip) {
  xml.AllowOnly(ccfg, {"base", "size"}, {"userRecord", "crc", "retain", "authorization"});
  chip.ccfg = {xml.Number(ccfg, "base"), xml.Number(ccfg, "size")};
  const pugi::xml_node userRecord = xml.Only(ccfg, "userRecord");
  xml.AllowOnly(userRecord, {"offset", "length"}, {});
  chip.userRecord = {xml.Number(userRecord, "offset"), xml.Number(userRecord, "length")};
  chip.bootCrc = ReadCrc(xml, ccfg, "boot");
  chip.ccfgCrc = ReadCrc(xml, ccfg, "ccfg");
  chip.userRecordCrc = ReadCrc(xml, ccfg, "userRecord");
  chip.debugCrc = ReadCrc(xml, ccfg, "debug");
  const pugi::xml_node retain = xml.Only(ccfg, "retain");
  xml.AllowOnly(retain, {"offset", "words", "groupShift"}, {});
  chip.retainOffset = xml.Number(retain, "offset");
  chip.retainWords = xml.Number(retain, "words");
  chip.retainGroupShift = xml.Number(retain, "groupShift");
  const pugi::xml_node authorization = xml.Only(ccfg, "authorization");
  xml.AllowOnly(authorization, {"type", "id", "hash"}, {});
  chip.authorizationTypeOffset = xml.Number(authorization, "type");
  chip.authorizationIdOffset = xml.Number(authorization, "id");
  chip.authorizationHashOffset = xml.Number(authorization, "hash");
}

struct HsmFormName {
  std::string_view name;
  HsmForm form;
};
constexpr HsmFormName s_hsmForms[] = {
    {"none", HsmForm::None}, {"whole", HsmForm::Whole}, {"records", HsmForm::Records}};

HsmForm ReadHsm(const XmlText& xml, const pugi::xml_node& node) {
  const std::string_view name = node.attribute("hsm").as_string("none");
  const auto known = std::find_if(std::begin(s_hsmForms), std::end(s_hsmForms),
                                  [&](const HsmFormName& one) { return one.name == name; });
  if (known == std::end(s_hsmForms))
    xml.Refuse(node, fmt::format("hsm=\"{}\" is none of none, whole, records", name));
  return known->form;
}

ChipFacts ReadChip(const XmlText& xml, const pugi::xml_node& node) {
  xml.AllowOnly(node, {"deviceId", "partId", "lifeCycle", "hsm"}, {"main", "ccfg", "scfg", "otp", "ram"});
  ChipFacts chip;
  chip.deviceId = xml.Number(node, "deviceId");
  chip.partId = xml.Number(node, "partId");
  chip.lifeCycle = xml.Number(node, "lifeCycle");
  chip.hsm = ReadHsm(xml, node);
  const pugi::xml_node main = xml.Only(node, "main");
  xml.AllowOnly(main, {"size", "sectorSize"}, {});
  chip.mainSize = xml.Number(main, "size");
  chip.sectorSize = xml.Number(main, "sectorSize");
  ReadChipCcfg(xml, xml.Only(node, "ccfg"), chip);
  if (node.child("scfg")) {
    const pugi::xml_node scfg = xml.Only(node, "scfg");
    xml.AllowOnly(scfg, {"base", "size"}, {"crc"});
    chip.scfg = {xml.Number(scfg, "base"), xml.Number(scfg, "size")};
    chip.scfgCrc = ReadCrc(xml, scfg, "scfg");
  }
  chip.otp = ReadOptionalRange(xml, node, "otp");
  chip.ram = ReadRange(xml, xml.Only(node, "ram"));
  return chip;
}

}  // namespace

DeviceDescription ReadDeviceDescription(const std::filesystem::path& file) {
  return ParseDeviceDescription(ReadFile(file), file);
}

DeviceDescription ParseDeviceDescription(std::string_view text, const std::filesystem::path& file) {
  const XmlText xml(text, file);
  const pugi::xml_node root = xml.Root("device");
  xml.AllowOnly(root, {"family"}, {"description", "map", "facts", "include", "group", "chip"});
  const pugi::xml_node description = xml.Only(root, "description");
  xml.AllowOnly(description, {}, {});

  DeviceDescription device;
  device.name = file.stem().string();
  device.family = xml.Text(root, "family");
  device.description = description.text().get();
  device.file = file;
  PropertyReader properties(device.properties);
  properties.ReadFacts(xml, xml.Only(root, "facts"));
  for (const pugi::xml_node& node : root.children()) {
    if (node.name() == std::string_view("include")) properties.ReadInclude(xml, node);
    if (node.name() == std::string_view("group")) properties.ReadGroup(xml, node);
  }
  device.map = ReadMap(xml, root, device);
  device.chip = ReadChip(xml, xml.Only(root, "chip"));
  return device;
}

}  // namespace host
