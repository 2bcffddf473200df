#include "DebugAuthorizationFields.h"

#include <algorithm>

#include "FlashUtil.h"

namespace {

// Offsets from the end of the sector.
constexpr std::size_t kTypeFromEnd = 48;
constexpr std::size_t kPasswordIdFromEnd = 44;
constexpr std::size_t kPasswordHashFromEnd = 36;

void WriteHex(std::vector<std::uint8_t>& ccfg, std::size_t offset, const std::string& text,
              std::size_t digits) {
  const std::vector<std::uint8_t> bytes = hexStringToBytes(std::string(digits - text.size(), '0') + text);
  std::copy(bytes.begin(), bytes.end(), ccfg.begin() + static_cast<std::ptrdiff_t>(offset));
}

}  // namespace

bool IsHexOfAtMost(const std::string& text, std::size_t maxDigits) {
  return text.size() <= maxDigits && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

DebugAuthorization ReadDebugAuthorization(const std::vector<std::uint8_t>& ccfg) {
  return static_cast<DebugAuthorization>(ccfg.at(ccfg.size() - kTypeFromEnd));
}

void WriteDebugAuthorization(std::vector<std::uint8_t>& ccfg, DebugAuthorization type) {
  ccfg.at(ccfg.size() - kTypeFromEnd) = static_cast<std::uint8_t>(type);
}

void WriteRequiredPassword(std::vector<std::uint8_t>& ccfg, const std::string& idText,
                           const std::string& hashText) {
  WriteDebugAuthorization(ccfg, DebugAuthorization::RequireAuthentication);
  WriteHex(ccfg, ccfg.size() - kPasswordIdFromEnd, idText, kPasswordIdDigits);
  WriteHex(ccfg, ccfg.size() - kPasswordHashFromEnd, hashText, kPasswordHashDigits);
}
