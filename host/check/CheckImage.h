#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "host/device/ChipFacts.h"
#include "host/image/ImageFile.h"

namespace host {

// Bytes that compress badly, the same for the same seed.
std::vector<std::uint8_t> Noise(std::size_t size, std::uint32_t seed);

// Puts the CRC word behind a covered range right.
void PutCrcRight(std::vector<std::uint8_t>& sector, CoveredRange range);
// The same CCFG and SCFG with all CRC words right.
std::vector<std::uint8_t> CcfgWithCrcs(const ChipFacts& chip, std::vector<std::uint8_t> ccfg);
std::vector<std::uint8_t> ScfgWithCrc(const ChipFacts& chip, std::vector<std::uint8_t> scfg);
// A CCFG without its user record, as it is programmed unless the settings say otherwise.
std::vector<std::uint8_t> WithoutUserRecord(const ChipFacts& chip, std::vector<std::uint8_t> ccfg);

// The sectors that a CCFG marks to be kept by a chip erase, in its retain field of a bit for each of the
// first 32 sectors and for every eight of the others. One that is not valid keeps none.
std::vector<bool> KeptSectors(const ChipFacts& chip, const std::vector<std::uint8_t>& ccfg);

// Made-up bytes for every region that a device has, in a configuration that keeps the chip open and marks
// sectors to be kept: 1, 31, 40 to 47, and the group from 256 on where the field reaches so far. CRC words
// are wrong until somebody puts them right.
struct CheckImage {
  // Wide: whole sectors, pieces of one, single bytes at a sector's ends, the last sector of all, one that is
  // filled with kFillByte. Small, for what is done some hundred times: four blocks, of which one is of two
  // sectors with the second marked, and one is marked whole.
  enum class Extent { Wide, Small };
  CheckImage(const ChipFacts& facts, std::uint32_t seed, Extent extent = Extent::Wide);

  [[nodiscard]] std::vector<ImageSegment> All() const;
  // Debugging behind kPassword.
  void RequirePassword();
  // Neither erasing nor programming, nor any other command.
  void ForbidEverything();

  // Types of debug authorization in the CCFG.
  static constexpr std::uint8_t kDebugOpen = 0x5A;
  static constexpr std::uint8_t kDebugByPassword = 0xA5;
  static constexpr std::uint8_t kDebugClosed = 0x00;

  static constexpr std::uint32_t kFilledSector = 32;
  static constexpr std::uint8_t kFillByte = 0xEE;
  static constexpr std::string_view kPassword = "open sesame!";  // whole words: hashed as it is
  static constexpr std::string_view kPasswordHash =              // sha256sum of it
      "fd4d49e7a2cf6cc1c00217e59853837439283a28411869e2b428246c7b63ccbf";

  ChipFacts chip;
  std::vector<ImageSegment> main;
  std::vector<std::uint8_t> ccfg, scfg;  // whole sectors; two keys in the ring
  std::vector<ImageSegment> otp;         // nothing where the device has none
  std::vector<ImageSegment> ram;
};

// The bytes that pairs of hexadecimal digits stand for.
std::vector<std::uint8_t> FromHex(std::string_view digits);

}  // namespace host
