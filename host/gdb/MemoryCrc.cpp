#include "host/gdb/MemoryCrc.h"

#include <array>

namespace host::gdb {

namespace {

constexpr std::array<std::uint32_t, 256> MakeTable() {
  std::array<std::uint32_t, 256> table{};
  for (std::uint32_t byte = 0; byte < table.size(); ++byte) {
    std::uint32_t crc = byte << 24;
    for (int bit = 0; bit < 8; ++bit) crc = crc << 1 ^ ((crc >> 31) != 0 ? 0x04C1'1DB7U : 0U);
    table[byte] = crc;
  }
  return table;
}
constexpr std::array<std::uint32_t, 256> s_table = MakeTable();

}  // namespace

std::uint32_t MemoryCrc(std::span<const std::uint8_t> bytes, std::uint32_t crc) {
  for (const std::uint8_t byte : bytes) crc = crc << 8 ^ s_table[crc >> 24 ^ byte];
  return crc;
}

}  // namespace host::gdb
