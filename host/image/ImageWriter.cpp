#include "host/image/ImageWriter.h"

#include <fmt/format.h>

#include <algorithm>
#include <initializer_list>
#include <numeric>
#include <vector>

namespace host {
namespace {

constexpr std::uint32_t kLineBytes = 32;  // divides 64 KiB: no line crosses a base address of Intel HEX

using Bytes = std::span<const std::uint8_t>;

// The bytes in their lines, each with the address of its first; lines end where `kLineBytes` divides.
template <typename Take>
void ForEachLine(Bytes bytes, std::uint32_t address, const Take& take) {
  while (!bytes.empty()) {
    const auto size = std::min<std::size_t>(kLineBytes - address % kLineBytes, bytes.size());
    take(address, bytes.first(size));
    bytes = bytes.subspan(size);
    address += static_cast<std::uint32_t>(size);
  }
}

// `start`, then `head` and `data` and a checksum, with which their sum is `total` in its lowest 8 bits.
std::string Record(std::string_view start, std::initializer_list<std::uint32_t> head, Bytes data,
                   std::uint32_t total) {
  std::vector<std::uint8_t> record;
  for (const std::uint32_t byte : head) record.push_back(static_cast<std::uint8_t>(byte));
  record.insert(record.end(), data.begin(), data.end());
  record.push_back(static_cast<std::uint8_t>(total - std::accumulate(record.begin(), record.end(), 0U)));
  return fmt::format("{}{:02X}\n", start, fmt::join(record, ""));
}

std::string HexLine(std::uint32_t type, std::uint32_t offset, Bytes data) {
  return Record(":", {static_cast<std::uint32_t>(data.size()), offset >> 8, offset, type}, data, 0);
}

std::string SRecordLine(std::string_view type, std::uint32_t address, Bytes data) {
  const auto count = static_cast<std::uint32_t>(data.size()) + 5;
  return Record(type, {count, address >> 24, address >> 16, address >> 8, address}, data, 0xFF);
}

}  // namespace

std::string WriteIntelHex(Bytes bytes, std::uint32_t address) {
  std::string text;
  std::uint32_t base = 0;  // what holds until a record of type 04 says otherwise
  ForEachLine(bytes, address, [&](std::uint32_t at, Bytes line) {
    if (at >> 16 != base) {
      base = at >> 16;
      const std::uint8_t upper[] = {static_cast<std::uint8_t>(base >> 8), static_cast<std::uint8_t>(base)};
      text += HexLine(4, 0, upper);
    }
    text += HexLine(0, at, line);
  });
  return text + HexLine(1, 0, {});
}

std::string WriteSRecord(Bytes bytes, std::uint32_t address) {
  std::string text = "S0030000FC\n";
  ForEachLine(bytes, address, [&](std::uint32_t at, Bytes line) { text += SRecordLine("S3", at, line); });
  return text + SRecordLine("S7", 0, {});
}

}  // namespace host
