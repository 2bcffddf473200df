#pragma once

#include <cstdint>
#include <span>

namespace host::gdb {

// The CRC-32 with which a client compares memory with its file: polynomial 0x04C11DB7, most significant bit
// first, not inverted at the end. Pass the result of one call as `crc` of the next to go on.
inline constexpr std::uint32_t kMemoryCrcStart = 0xFFFF'FFFF;
[[nodiscard]] std::uint32_t MemoryCrc(std::span<const std::uint8_t> bytes,
                                      std::uint32_t crc = kMemoryCrcStart);

}  // namespace host::gdb
