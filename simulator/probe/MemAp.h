#pragma once

#include <cstdint>

#include "../Chip.h"

namespace simulator {

inline constexpr std::uint8_t kIdrOffset = 0xFC;  // of every access port

// The memory access port: CSW, TAR, DRW, the four banked data registers, CFG, BASE and IDR. Sizes are byte,
// half-word and word, on their lanes of DRW; the address counts up in bits 9-0 only.
//
// An access fails with std::runtime_error when the chip has the port closed, when the bus refuses, and when
// the address does not suit the size; the address then stays.
class MemAp {
 public:
  MemAp(Chip& attached, std::uint32_t identification) : chip(attached), idr(identification) {}

  // `offset` is a register's, 0 to 0xFC.
  std::uint32_t Read(std::uint8_t offset);
  void Write(std::uint8_t offset, std::uint32_t value);
  // Back to words without increment: nothing that a debugger set survives.
  void Reset();

 private:
  [[nodiscard]] std::uint32_t Size() const { return 1U << (control & 3); }  // bytes
  [[nodiscard]] std::uint32_t BankedAddress(std::uint8_t offset) const;
  std::uint32_t ReadBus(std::uint32_t at);
  void WriteBus(std::uint32_t at, std::uint32_t value);
  void RequireAligned(std::uint32_t at) const;
  void Increment();
  bool IsEnabled();

  Chip& chip;
  std::uint32_t idr;
  std::uint32_t control = 2;  // the writable bits of CSW: size, increment and protection
  std::uint32_t address = 0;
};

}  // namespace simulator
