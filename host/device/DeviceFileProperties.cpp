#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <string>
#include <utility>

#include "host/device/DeviceFileParts.h"
#include "host/device/FileBytes.h"
#include "host/device/InputError.h"

namespace host {
namespace {

// Collects the properties of a description and of the files it includes.
class PropertyReader {
 public:
  std::vector<FlashProperty> properties;

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
    const XmlText included(ReadIncluded(xml, include, file), file);
    const pugi::xml_node root = included.Root("settings");
    included.AllowOnly(root, {}, {"group"});
    for (const pugi::xml_node& group : root.children()) ReadGroup(included, group);
  }

 private:
  static std::string ReadIncluded(const XmlText& xml, const pugi::xml_node& include,
                                  const std::filesystem::path& file) {
    try {
      return ReadWholeFile(file, kLargestDeviceFile);
    } catch (const InputError& error) {
      xml.Refuse(include, error.what());
    }
  }

  void ReadDisplay(const XmlText& xml, const pugi::xml_node& node, const std::string& group) {
    xml.AllowOnly(node, {"name", "meaning"}, {});
    Add(xml, node,
        {xml.Text(node, "name"), PropertyType::Display, "--", {}, xml.Text(node, "meaning"), group});
  }

  void ReadSetting(const XmlText& xml, const pugi::xml_node& node, const std::string& group) {
    const std::string typeName = xml.Text(node, "type");
    FlashProperty setting{
        xml.Text(node, "name"),    PropertyTypeNamed(typeName).value_or(PropertyType::Fixed),
        xml.Text(node, "default"), {},
        xml.Text(node, "meaning"), group};
    if (!setting.IsSetting()) xml.Refuse(node, fmt::format("unknown type \"{}\"", typeName));
    switch (setting.type) {
      case PropertyType::Choice:
        xml.AllowOnly(node, {"name", "type", "default", "meaning"}, {"choice"});
        for (const pugi::xml_node& choice : node.children())
          setting.choices.emplace_back(choice.text().get());
        break;
      case PropertyType::Hex:
        xml.AllowOnly(node, {"name", "type", "digits", "default", "meaning"}, {});
        setting.digits = xml.Number(node, "digits");
        break;
      default: xml.AllowOnly(node, {"name", "type", "default", "meaning"}, {}); break;
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

  std::set<std::string> names;
};

}  // namespace

std::vector<FlashProperty> ReadProperties(const XmlText& xml, const pugi::xml_node& root) {
  PropertyReader reader;
  reader.ReadFacts(xml, xml.Only(root, "facts"));
  for (const pugi::xml_node& node : root.children()) {
    if (node.name() == std::string_view("include")) reader.ReadInclude(xml, node);
    if (node.name() == std::string_view("group")) reader.ReadGroup(xml, node);
  }
  return std::move(reader.properties);
}

}  // namespace host
