#pragma once

#include <cstdint>

// CRC-32 of IEEE 802.3: reflected polynomial 0xEDB88320, initial value and final XOR 0xFFFFFFFF. Computed by
// the target too, so the algorithm is the chip's. `length` in bytes; 0 gives 0.
[[nodiscard]] std::uint32_t CalcCRC32(const std::uint8_t* data, std::uint32_t length);
