#include "PermissionList.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <vector>

#include "SectorList.h"

namespace {

// Decimal, hexadecimal with 0x, or octal with a leading 0; what follows the digits is ignored.
unsigned long ParseInteger(const std::string& text) {
  char* end = nullptr;
  const unsigned long value = std::strtoul(text.c_str(), &end, 0);
  if (end == text.c_str())
    throw std::runtime_error("Invalid format of the Permissions property: \"" + text + "\" is not a number");
  return value;
}

std::string Hex(unsigned long value) {
  std::array<char, 20> digits{};
  std::snprintf(digits.data(), digits.size(), "%lx", value);
  return digits.data();
}

}  // namespace

std::string PermissionObjections(const std::string& list, const std::string& region,
                                 std::span<const std::uint8_t> data) {
  if (list.empty()) return "";
  std::string message;
  bool anyDiffers = false;
  for (const std::string& entry : GetSubStrings(list, ',')) {
    const std::vector<std::string> fields = GetSubStrings(entry, ':');
    const std::string& offsetField = fields.at(1);
    if (offsetField.find("0x") == std::string::npos) {
      message += "Invalid format of the Permissions property: \"" + offsetField +
                 "\". The offset value should be on the format \"0x12[L|H]\"";
      continue;
    }
    const unsigned shift = offsetField.find('H') != std::string::npos ? 4 : 0;
    const unsigned long offset = ParseInteger(offsetField.substr(0, 4));
    if (offset == 0) continue;
    const unsigned long expected = ParseInteger(fields.at(2));
    if (offset >= data.size()) continue;
    const unsigned long actual = (unsigned{data[offset]} >> shift) & 0xF;
    if (actual == expected) continue;
    if (!anyDiffers)
      message += "The " + region +
                 " contain permission settings that can lock the device for further debugging and flash "
                 "updates. ";
    anyDiffers = true;
    message += " Permission setting name: " + fields[0] + ", reading 0x" + Hex(actual) + ", expecting 0x" +
               Hex(expected) + ".";
  }
  if (anyDiffers)
    message +=
        " If current permission settings was intended, the \"Permission check\" option must be disabled to "
        "program current settings.";
  return message;
}
