#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

enum class PropertyType {
  Fixed,     // a fact of the device that the plug-in reads; nothing for a user to choose
  Bool,      // "1" or "0"
  Hex,       // at most `digits` hexadecimal digits, without 0x
  Text,      // free
  Choice,    // exactly one of `choices`
  Password,  // never shown, logged or traced
  File,      // a path, or empty
  Display,   // written by the plug-in for the user to read
};

// As device descriptions and documents write it.
std::string_view PropertyTypeName(PropertyType type);
std::optional<PropertyType> PropertyTypeNamed(std::string_view name);

// One property of the plug-in's host interface.
struct FlashProperty {
  std::string name;
  PropertyType type = PropertyType::Text;
  std::string value;                 // default of a setting, value of a fact
  std::vector<std::string> choices;  // of a Choice, at least one; else empty
  std::string meaning;               // one line for the user
  std::string group;                 // heading that the settings dialog would show it under
  std::size_t digits = 0;            // of a Hex, at least one; else 0

  // Whether it is for the user to choose.
  [[nodiscard]] bool IsSetting() const {
    return type != PropertyType::Fixed && type != PropertyType::Display;
  }
};

// `value` as the plug-in wants it: a Bool also takes true, false, on, off, yes and no. Throws InputError
// naming the property and what it takes when the value does not suit; a password or a Hex is not repeated.
std::string NormalizedValue(const FlashProperty& property, std::string_view value);

}  // namespace host
