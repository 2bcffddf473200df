#include "host/device/FlashProperties.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "host/device/InputError.h"
#include "host/device/Number.h"

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

bool EqualButForCase(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](unsigned char a, unsigned char b) { return std::tolower(a) == std::tolower(b); });
}

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

std::string NormalizedHex(const FlashProperty& property, std::string_view value) {
  const bool hasPrefix = value.starts_with("0x") || value.starts_with("0X");
  const std::string digits(hasPrefix ? value.substr(2) : value);
  const auto number = ParseNumber("0x" + digits);
  if (!number || *number > 0xFFFF'FFFF) RefuseValue(property, value, "a hexadecimal number of 32 bits");
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

std::string NormalizedValue(const FlashProperty& property, std::string_view value) {
  switch (property.type) {
    case PropertyType::Bool: return NormalizedBool(property, value);
    case PropertyType::Hex: return NormalizedHex(property, value);
    case PropertyType::Choice: return NormalizedChoice(property, value);
    case PropertyType::Fixed:
    case PropertyType::Text:
    case PropertyType::Password:
    case PropertyType::File:
    case PropertyType::Display: break;
  }
  return std::string(value);
}

const FlashProperty* DeviceDescription::Find(std::string_view propertyName) const {
  const auto found = std::find_if(properties.begin(), properties.end(), [&](const FlashProperty& property) {
    return property.name == propertyName;
  });
  return found == properties.end() ? nullptr : &*found;
}

std::vector<std::filesystem::path> ListDeviceFiles(const std::filesystem::path& folder) {
  std::error_code error;
  std::vector<std::filesystem::path> files;
  for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error))
    if (entry->path().extension() == ".xml") files.push_back(entry->path());
  if (error)
    throw InputError(fmt::format("{}: cannot be read as a folder of device descriptions: {}", folder.string(),
                                 error.message()));
  std::sort(files.begin(), files.end());
  return files;
}

std::filesystem::path FindDeviceFile(std::string_view nameOrFile, const std::filesystem::path& folder) {
  // A path first, so that a broken installation does not keep anyone from his own file.
  std::filesystem::path asFile(nameOrFile);  // not const, so that it can be moved out
  std::error_code ignored;
  if (asFile.extension() == ".xml" && std::filesystem::is_regular_file(asFile, ignored)) return asFile;
  std::vector<std::string> names;
  for (const std::filesystem::path& file : ListDeviceFiles(folder)) {
    if (file.stem() == asFile) return file;
    names.push_back(file.stem().string());
  }
  throw InputError(fmt::format("no device \"{}\": it is neither a description file (*.xml) nor one of {}",
                               nameOrFile, fmt::join(names, ", ")));
}

}  // namespace host
