#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The debug-authorization fields at the end of the CCFG sector. `ccfg` is the stored copy, `sectorSize` the
// size of the chip's sector, whose end is what counts: a description that is read anew under a stored copy
// can make the two differ. Throws std::out_of_range, with nothing written, where the copy or the sector is
// too small.

// Values of the type byte, the chip's.
enum class DebugAuthorization : std::uint8_t {
  NotAllowed = 0x00,
  Allowed = 0x5A,
  RequireAuthentication = 0xA5
};

// Digits of the two texts below, at most.
constexpr std::size_t kPasswordIdDigits = 16;
constexpr std::size_t kPasswordHashDigits = 64;

// True when `text` holds nothing but hexadecimal digits, and no more than `maxDigits` (none is fine).
[[nodiscard]] bool IsHexOfAtMost(const std::string& text, std::size_t maxDigits);

[[nodiscard]] DebugAuthorization ReadDebugAuthorization(const std::vector<std::uint8_t>& ccfg,
                                                        std::size_t sectorSize);
void WriteDebugAuthorization(std::vector<std::uint8_t>& ccfg, std::size_t sectorSize,
                             DebugAuthorization type);

// Sets the type to RequireAuthentication and writes both values in the byte order of their texts, which
// IsHexOfAtMost has accepted; short ones are padded with zeros on the left.
void WriteRequiredPassword(std::vector<std::uint8_t>& ccfg, std::size_t sectorSize, const std::string& idText,
                           const std::string& hashText);
