#pragma once

#include <cstdint>
#include <span>

namespace simulator {

// CRC-32 of IEEE 802.3, as the chip's ROM computes it.
std::uint32_t Crc32(std::span<const std::uint8_t> bytes);

}  // namespace simulator
