#pragma once

#include <cstdint>
#include <span>

namespace host {

// CRC-32 of IEEE 802.3, to tell the user which bytes were meant. Pass the result of one call as `crc` of the
// next to go on over several pieces.
[[nodiscard]] std::uint32_t Crc32(std::span<const std::uint8_t> bytes, std::uint32_t crc = 0);

}  // namespace host
