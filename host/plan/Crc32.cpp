#include "host/plan/Crc32.h"

#include <array>

namespace host {

namespace {

constexpr std::uint32_t kReflectedPolynomial = 0xEDB88320;

constexpr std::array<std::uint32_t, 256> MakeTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
    std::uint32_t crc = byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? kReflectedPolynomial : 0);
    table[byte] = crc;
  }
  return table;
}
constexpr std::array<std::uint32_t, 256> s_table = MakeTable();

}  // namespace

std::uint32_t Crc32(std::span<const std::uint8_t> bytes, std::uint32_t crc) {
  crc = ~crc;
  for (const std::uint8_t byte : bytes) crc = (crc >> 8) ^ s_table[(crc ^ byte) & 0xFF];
  return ~crc;
}

}  // namespace host
