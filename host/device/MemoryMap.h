#pragma once

#include <cstdint>
#include <string_view>

namespace host {

// In the order in which the plug-in puts them on the chip.
enum class Region { Main, Ccfg, UserRecord, Scfg, Otp, Ram, Outside };

std::string_view RegionName(Region region);

struct AddressRange {
  std::uint32_t base = 0;
  std::uint32_t size = 0;  // 0: the device has no such region

  [[nodiscard]] bool Contains(std::uint32_t address) const { return address - base < size; }
  // One past the last byte; 64 bits, for a range may end at the top of the address space.
  [[nodiscard]] std::uint64_t End() const { return std::uint64_t{base} + size; }
  bool operator==(const AddressRange&) const = default;
};

inline constexpr std::uint8_t kErased = 0xFF;  // each byte of flash and OTP

// Where an image's bytes belong.
struct MemoryMap {
  AddressRange main;             // begins at 0
  std::uint32_t sectorSize = 0;  // of MAIN, not 0
  AddressRange ccfg;
  AddressRange userRecord;  // inside ccfg
  AddressRange scfg;
  AddressRange otp;
  AddressRange ram;
  // Address bits that the device ignores: an image may be linked at this alias of its addresses. 0: none.
  std::uint32_t aliasMask = 0;
};

}  // namespace host
