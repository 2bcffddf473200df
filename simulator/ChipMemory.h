#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>
#include <vector>

#include "ChipDescription.h"
#include "ChipState.h"
#include "Faults.h"

namespace simulator {

// Power went away in the middle of what the chip was doing.
class PowerLost : public std::runtime_error {
 public:
  PowerLost() : std::runtime_error("The chip lost power") {}
};

// One kind of memory and where the bus sees it.
struct MemoryRegion {
  std::uint32_t base = 0;
  std::vector<std::uint8_t>* bytes = nullptr;  // not owned
};

// The chip's memories with flash's rules: erasing sets all bits of a range, programming only clears bits, one
// 32-bit word after the other. Offsets are bytes from the region's start; ranges must lie inside the region.
class ChipMemory {
 public:
  ChipMemory(const ChipDescription& chip, ChipState& contents, Faults& asked);

  [[nodiscard]] MemoryRegion Main() const { return main; }
  [[nodiscard]] MemoryRegion Ccfg() const { return ccfg; }
  [[nodiscard]] MemoryRegion Scfg() const { return scfg; }
  [[nodiscard]] MemoryRegion Otp() const { return otp; }

  static void Erase(const MemoryRegion& region, std::uint32_t offset, std::uint32_t length);
  // Throws PowerLost when power fails on the way: the words up to there are then programmed.
  void Program(const MemoryRegion& region, std::uint32_t offset, std::span<const std::uint8_t> data);
  static bool IsBlank(const MemoryRegion& region, std::uint32_t offset, std::uint32_t length);
  static std::uint32_t Crc(const MemoryRegion& region, ByteRange range);

  // Accesses of the running chip's bus: reading anywhere, writing to RAM. Throw std::runtime_error when the
  // range does not lie in one region that allows it.
  void BusRead(std::uint32_t address, std::span<std::uint8_t> bytes) const;
  void BusWrite(std::uint32_t address, std::span<const std::uint8_t> bytes);

 private:
  MemoryRegion main, ccfg, scfg, otp, ram;
  Faults& faults;
};

}  // namespace simulator
