#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <pugixml.hpp>
#include <string>
#include <string_view>

namespace host {

// One XML text and where it comes from, with what a strict reader asks of its nodes. Every complaint is an
// InputError that names the file and the line.
class XmlText {
 public:
  XmlText(std::string_view xml, std::filesystem::path xmlFile);

  // The root, which must be called `name`.
  [[nodiscard]] pugi::xml_node Root(std::string_view name) const;
  // The one child of this name.
  [[nodiscard]] pugi::xml_node Only(const pugi::xml_node& node, const char* name) const;
  // The same, or a node that is false.
  [[nodiscard]] pugi::xml_node OnlyIfAny(const pugi::xml_node& node, const char* name) const;
  // A misspelled name would otherwise be a setting that silently does nothing.
  void AllowOnly(const pugi::xml_node& node, std::initializer_list<std::string_view> attributes,
                 std::initializer_list<std::string_view> children) const;

  [[nodiscard]] std::string Text(const pugi::xml_node& node, const char* attribute) const;
  // Decimal, or hexadecimal with 0x.
  [[nodiscard]] std::uint32_t Number(const pugi::xml_node& node, const char* attribute,
                                     std::uint32_t most = 0xFFFF'FFFF) const;

  [[noreturn]] void Refuse(const pugi::xml_node& node, std::string_view problem) const;
  [[nodiscard]] const std::filesystem::path& File() const { return file; }

 private:
  [[noreturn]] void RefuseAt(std::ptrdiff_t offset, std::string_view problem) const;

  std::string text;
  std::filesystem::path file;
  pugi::xml_document document;
};

}  // namespace host
