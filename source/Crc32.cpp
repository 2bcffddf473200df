#include "Crc32.h"

#include <array>

namespace {

// The CRC of each nibble.
constexpr std::array<std::uint32_t, 16> crcRand32Lut = {
    0x00000000, 0x1DB71064, 0x3B6E20C8, 0x26D930AC, 0x76DC4190, 0x6B6B51F4, 0x4DB26158, 0x5005713C,
    0xEDB88320, 0xF00F9344, 0xD6D6A3E8, 0xCB61B38C, 0x9B64C2B0, 0x86D3D2D4, 0xA00AE278, 0xBDBDF21C};

}  // namespace

std::uint32_t CalcCRC32(const std::uint8_t* data, std::uint32_t length) {
  std::uint32_t crc = 0xFFFF'FFFF;
  for (std::uint32_t i = 0; i < length; ++i) {
    crc = crcRand32Lut[(crc ^ data[i]) & 15] ^ (crc >> 4);
    crc = crcRand32Lut[(crc ^ (data[i] >> 4)) & 15] ^ (crc >> 4);
  }
  return crc ^ 0xFFFF'FFFF;
}
