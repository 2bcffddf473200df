#include "ChipMemory.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "Crc32.h"

namespace simulator {
namespace {

bool Contains(const MemoryRegion& region, std::uint32_t address, std::size_t length) {
  return address >= region.base &&
         std::uint64_t{address} + length <= std::uint64_t{region.base} + region.bytes->size();
}

std::runtime_error BusError(const char* access, std::uint32_t address, std::size_t length) {
  char text[96];
  std::snprintf(text, sizeof text, "Bus error: %s %zu bytes at 0x%08X", access, length, address);
  return std::runtime_error(text);
}

std::span<std::uint8_t> Part(const MemoryRegion& region, std::uint32_t offset, std::size_t length) {
  return std::span(*region.bytes).subspan(offset, length);
}

}  // namespace

ChipMemory::ChipMemory(const ChipDescription& chip, ChipState& contents, Faults& asked)
    : main{0, &contents.main},
      ccfg{chip.ccfgBase, &contents.ccfg},
      scfg{chip.scfgBase, &contents.scfg},
      otp{chip.otpBase, &contents.otp},
      ram{chip.ramBase, &contents.ram},
      faults(asked) {}

void ChipMemory::Erase(const MemoryRegion& region, std::uint32_t offset, std::uint32_t length) {
  std::ranges::fill(Part(region, offset, length), kErased);
}

void ChipMemory::Program(const MemoryRegion& region, std::uint32_t offset,
                         std::span<const std::uint8_t> data) {
  const std::span<std::uint8_t> cells = Part(region, offset, data.size());
  for (std::size_t i = 0; i < data.size(); ++i) {
    const auto address = static_cast<std::uint32_t>(region.base + offset + i);
    if (!faults.CellFails(address)) cells[i] &= data[i];
    const bool wordWritten = address % 4 == 3 || i + 1 == data.size();
    if (wordWritten && faults.NextWordCutsPower()) throw PowerLost();
  }
}

bool ChipMemory::IsBlank(const MemoryRegion& region, std::uint32_t offset, std::uint32_t length) {
  return std::ranges::all_of(Part(region, offset, length), [](std::uint8_t byte) { return byte == kErased; });
}

std::uint32_t ChipMemory::Crc(const MemoryRegion& region, ByteRange range) {
  return Crc32(Part(region, range.offset, range.length));
}

void ChipMemory::BusRead(std::uint32_t address, std::span<std::uint8_t> bytes) const {
  for (const MemoryRegion& region : {main, ccfg, scfg, otp, ram}) {
    if (!Contains(region, address, bytes.size())) continue;
    std::ranges::copy(Part(region, address - region.base, bytes.size()), bytes.begin());
    if (region.bytes != ram.bytes) return;
    for (std::size_t i = 0; i < bytes.size(); ++i)
      if (faults.RamByteFails(static_cast<std::uint32_t>(address + i))) bytes[i] ^= 1;
    return;
  }
  throw BusError("reading", address, bytes.size());
}

void ChipMemory::BusWrite(std::uint32_t address, std::span<const std::uint8_t> bytes) {
  if (!Contains(ram, address, bytes.size())) throw BusError("writing", address, bytes.size());
  std::ranges::copy(bytes, Part(ram, address - ram.base, bytes.size()).begin());
}

}  // namespace simulator
