#include "host/device/FlashProperty.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "host/device/InputError.h"
#include "host/device/Passwords.h"
#include "host/device/Text.h"

namespace host {
namespace {

struct TypeName {
  PropertyType type;
  std::string_view text;
};
constexpr TypeName s_typeNames[] = {
    {PropertyType::Fixed, "fixed"}, {PropertyType::Bool, "bool"},       {PropertyType::Hex, "hex"},
    {PropertyType::Text, "text"},   {PropertyType::Choice, "choice"},   {PropertyType::Password, "password"},
    {PropertyType::File, "file"},   {PropertyType::Display, "display"},
};

constexpr std::string_view s_trueWords[] = {"1", "true", "on", "yes"};
constexpr std::string_view s_falseWords[] = {"0", "false", "off", "no"};

template <typename Words>
bool IsOneOf(std::string_view value, const Words& words) {
  return std::any_of(std::begin(words), std::end(words),
                     [&](std::string_view word) { return EqualButForCase(value, word); });
}

[[noreturn]] void RefuseValue(const FlashProperty& property, std::string_view value,
                              std::string_view wanted) {
  throw InputError(fmt::format("{}: \"{}\" is not {}", property.name, value, wanted));
}

std::string NormalizedBool(const FlashProperty& property, std::string_view value) {
  if (IsOneOf(value, s_trueWords)) return "1";
  if (IsOneOf(value, s_falseWords)) return "0";
  RefuseValue(property, value, "1 or 0");
}

// The value is not repeated: where a password's hash belongs, someone may have put the password.
std::string NormalizedHex(const FlashProperty& property, std::string_view value) {
  if (value.size() > property.digits || !IsHexDigits(value))
    throw InputError(
        fmt::format("{}: not at most {} hexadecimal digits, without 0x", property.name, property.digits));
  return std::string(value);
}

std::string NormalizedChoice(const FlashProperty& property, std::string_view value) {
  for (const std::string& choice : property.choices)
    if (EqualButForCase(value, choice)) return choice;
  RefuseValue(property, value, fmt::format("one of \"{}\"", fmt::join(property.choices, "\", \"")));
}

}  // namespace

std::string_view PropertyTypeName(PropertyType type) {
  for (const TypeName& name : s_typeNames)
    if (name.type == type) return name.text;
  return "unknown";
}

std::optional<PropertyType> PropertyTypeNamed(std::string_view name) {
  for (const TypeName& known : s_typeNames)
    if (known.text == name) return known.type;
  return std::nullopt;
}

std::string NormalizedValue(const FlashProperty& property, std::string_view value) {
  switch (property.type) {
    case PropertyType::Bool: return NormalizedBool(property, value);
    case PropertyType::Hex: return NormalizedHex(property, value);
    case PropertyType::Choice: return NormalizedChoice(property, value);
    case PropertyType::Password: RequireSoundPassword(property.name, value); break;
    case PropertyType::Fixed:
    case PropertyType::Text:
    case PropertyType::File:
    case PropertyType::Display: break;
  }
  return std::string(value);
}

}  // namespace host
