#include "host/device/Passwords.h"

#include <fmt/format.h>

#include <charconv>

#include "host/device/InputError.h"
#include "host/device/Text.h"

namespace host {
namespace {

constexpr std::string_view kFormat = "DebugPasswordFormatList";
constexpr std::string_view kText = "DebugPassword";
constexpr std::string_view kHex = "DebugPasswordHex";
constexpr std::size_t kMostBytes = 64;  // that the password command carries

bool IsHexInUse(const PropertyStore& settings) {
  return settings.Get(kFormat) == "Hex";
}

std::string Unhex(std::string_view digits) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    unsigned byte = 0;
    std::from_chars(digits.data() + i, digits.data() + i + 2, byte, 16);
    bytes += static_cast<char>(byte);
  }
  return bytes;
}

}  // namespace

DebugPassword PasswordInUse(const PropertyStore& settings) {
  if (!IsHexInUse(settings)) return {settings.Get(kText), settings.Get(kText)};
  return {settings.Get(kHex), Unhex(settings.Get(kHex))};
}

void RequireSoundPassword(std::string_view name, std::string_view value) {
  const bool isHex = name == kHex;
  if (isHex && !IsHexDigits(value))
    throw InputError(fmt::format("{}: not all of it is hexadecimal digits", name));
  if (isHex && value.size() % 2 != 0)
    throw InputError(fmt::format("{}: {} digits are no whole number of bytes", name, value.size()));
  const std::size_t most = isHex ? 2 * kMostBytes : kMostBytes;
  if (value.size() > most)
    throw InputError(
        fmt::format("{}: {} {}, {} are the most", name, value.size(), isHex ? "digits" : "characters", most));
}

void RequirePasswordInItsFormat(const PropertyStore& settings) {
  const std::string_view used = IsHexInUse(settings) ? kHex : kText;
  const std::string_view other = IsHexInUse(settings) ? kText : kHex;
  if (settings.Get(used).empty() && !settings.Get(other).empty())
    throw InputError(
        fmt::format("{} is set, but {} is {}: it would not be used", other, kFormat, settings.Get(kFormat)));
}

}  // namespace host
