#include "host/device/XmlText.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/device/InputError.h"
#include "host/device/Number.h"

namespace host {

XmlText::XmlText(std::string_view xml, std::filesystem::path xmlFile) : text(xml), file(std::move(xmlFile)) {
  const pugi::xml_parse_result result =
      document.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_utf8);
  if (!result) RefuseAt(result.offset, fmt::format("broken XML: {}", result.description()));
}

pugi::xml_node XmlText::Root(std::string_view name) const {
  const pugi::xml_node root = document.document_element();
  if (root.name() != name) Refuse(root, fmt::format("the root element must be <{}>", name));
  return root;
}

pugi::xml_node XmlText::Only(const pugi::xml_node& node, const char* name) const {
  const pugi::xml_node child = OnlyIfAny(node, name);
  if (!child) Refuse(node, fmt::format("<{}> lacks a <{}>", node.name(), name));
  return child;
}

pugi::xml_node XmlText::OnlyIfAny(const pugi::xml_node& node, const char* name) const {
  const pugi::xml_node child = node.child(name);
  if (const pugi::xml_node second = child.next_sibling(name))
    Refuse(second, fmt::format("<{}> has a second <{}>", node.name(), name));
  return child;
}

void XmlText::AllowOnly(const pugi::xml_node& node, std::initializer_list<std::string_view> attributes,
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

std::string XmlText::Text(const pugi::xml_node& node, const char* attribute) const {
  const pugi::xml_attribute found = node.attribute(attribute);
  if (!found) Refuse(node, fmt::format("<{}> lacks the attribute \"{}\"", node.name(), attribute));
  return found.value();
}

std::uint32_t XmlText::Number(const pugi::xml_node& node, const char* attribute, std::uint32_t most) const {
  const std::string value = Text(node, attribute);
  const auto number = ParseNumber(value);
  if (!number || *number > 0xFFFF'FFFF)
    Refuse(node, fmt::format("{}=\"{}\" is not a number of 32 bits (decimal, or hexadecimal with 0x)",
                             attribute, value));
  if (*number > most) Refuse(node, fmt::format("{}=\"{}\" is more than 0x{:x}", attribute, value, most));
  return static_cast<std::uint32_t>(*number);
}

void XmlText::Refuse(const pugi::xml_node& node, std::string_view problem) const {
  RefuseAt(node.offset_debug(), problem);
}

void XmlText::RefuseAt(std::ptrdiff_t offset, std::string_view problem) const {
  const auto end = text.begin() + std::clamp<std::ptrdiff_t>(offset, 0, std::ssize(text));
  throw InputError(fmt::format("{}:{}: {}", file.string(), 1 + std::count(text.begin(), end, '\n'), problem));
}

}  // namespace host
