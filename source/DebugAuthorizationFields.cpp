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

DebugAuthorization ReadDebugAuthorization(const std::vector<std::uint8_t>& ccfg, std::size_t sectorSize) {
  return static_cast<DebugAuthorization>(ccfg.at(sectorSize - kTypeFromEnd));
}

void WriteDebugAuthorization(std::vector<std::uint8_t>& ccfg, std::size_t sectorSize,
                             DebugAuthorization type) {
  ccfg.at(sectorSize - kTypeFromEnd) = static_cast<std::uint8_t>(type);
}

void WriteRequiredPassword(std::vector<std::uint8_t>& ccfg, std::size_t sectorSize, const std::string& idText,
                           const std::string& hashText) {
  // The fields lie between the type and the last byte of the hash; the order of the two questions decides the
  // text of the failure.
  (void)ccfg.at(sectorSize - kTypeFromEnd);
  (void)ccfg.at(sectorSize - kPasswordHashFromEnd + kPasswordHashDigits / 2 - 1);
  WriteDebugAuthorization(ccfg, sectorSize, DebugAuthorization::RequireAuthentication);
  WriteHex(ccfg, sectorSize - kPasswordIdFromEnd, idText, kPasswordIdDigits);
  WriteHex(ccfg, sectorSize - kPasswordHashFromEnd, hashText, kPasswordHashDigits);
}
