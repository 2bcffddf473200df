#pragma once

#include <cstdint>

#include "Workbench.h"

constexpr std::uint32_t kSectorSize = 2048;

// Bytes that compress badly, the same for the same seed.
Bytes Noise(std::size_t size, std::uint32_t seed);

// Puts the CRC word behind a covered range right.
void PutCrcRight(Bytes& sector, host::CoveredRange range);
// The same CCFG and SCFG with all CRC words right, which is what a load makes of them.
Bytes CcfgWithCrcs(const host::ChipFacts& chip, Bytes ccfg);
Bytes ScfgWithCrc(const host::ChipFacts& chip, Bytes scfg);
// A CCFG without its user record, as it is programmed unless the settings say otherwise.
Bytes WithoutUserRecord(const host::ChipFacts& chip, Bytes ccfg);

// The bytes of the segments as they end up in a region that begins at `base`, of which no other byte is
// given.
Bytes Laid(const Segments& segments, std::uint32_t base, std::size_t size, std::uint8_t fill);

// What differs between two chips: sectors of MAIN flash by number, other regions by name; empty for nothing.
std::string Difference(const simulator::ChipState& left, const simulator::ChipState& right);

// An image for a device, region by region. CRC words are wrong until somebody puts them right.
struct TestImage {
  TestImage(const host::ChipFacts& facts, std::uint32_t seed);

  // Every region that the device has.
  [[nodiscard]] Segments All() const;
  // The OTP and the RAM, with nothing else in them.
  [[nodiscard]] Bytes Otp() const;
  [[nodiscard]] Bytes Ram() const { return Laid(ram, chip.ram.base, chip.ram.size, 0x00); }
  // Whether the image's CCFG marks a sector to be retained by a chip erase: single ones, a group, and beyond
  // sector 256 where the device's field reaches so far.
  [[nodiscard]] bool Retains(std::uint32_t sector) const;
  // Debugging behind kPassword.
  void RequirePassword();

  host::ChipFacts chip;
  Segments main;
  Bytes ccfg;    // the whole sector, opens debugging
  Bytes scfg;    // the whole sector, two keys in the ring
  Segments otp;  // nothing where the device has none
  Segments ram;
};

constexpr std::uint32_t kFilledSector = 32;  // all kFillByte in the MAIN data of the image
constexpr std::uint8_t kFillByte = 0xEE;
constexpr char kPassword[] = "open sesame!";  // whole words: nothing is padded before it is hashed
