#pragma once

#include <cstdint>
#include <string>

namespace simulator {

// A run of bytes inside a configuration sector.
struct ByteRange {
  std::uint32_t offset = 0;  // from the sector's start
  std::uint32_t length = 0;
};

// How the chip's security module takes a new firmware image (HsmImage.h has both forms).
enum class HsmKind : std::uint8_t {
  None,     // the chip has no security module: its commands are unknown
  Whole,    // one uninterrupted stream
  Records,  // record by record, each worked off before the next may come
};

// Everything in which one chip differs from another. Addresses are target addresses, sizes are bytes; a
// region of size 0 is not there. MAIN flash begins at address 0. A range that a CRC covers is followed at
// once by the CRC's own little-endian word.
struct ChipDescription {
  std::string name;
  std::uint32_t deviceId = 0;  // the whole DEVICEID word: version in bits 31-28, device number in 27-12
  std::uint32_t partId = 0;    // the whole PARTID word: variant in bits 23-16, part number in 15-0

  std::uint32_t mainSize = 0;       // a whole number of sectors
  std::uint32_t sectorSize = 2048;  // a multiple of 4
  std::uint32_t ccfgBase = 0;
  std::uint32_t ccfgSize = 0;
  std::uint32_t scfgBase = 0;
  std::uint32_t scfgSize = 0;
  std::uint32_t otpBase = 0;
  std::uint32_t otpSize = 0;  // at most 2048: what the one OTP command carries
  std::uint32_t ramBase = 0;
  std::uint32_t ramSize = 0;

  ByteRange userRecord;  // in the CCFG, its CRC word included
  ByteRange bootCfgCrc;  // what the CCFG's four CRCs cover
  ByteRange ccfgCrc;
  ByteRange userRecordCrc;  // lies in `userRecord`
  ByteRange debugCfgCrc;
  ByteRange scfgCrc;  // in the SCFG; only looked at when there is one

  std::uint32_t chipEraseRetainOffset = 0;  // in the CCFG
  std::uint32_t chipEraseRetainWords = 0;   // 2, 3 or 5
  std::uint32_t retainGroupShift = 0;  // 0 or 4: the bit of retain word 1 that stands for sectors 32 to 39

  std::uint32_t debugTypeOffset = 0;  // in the CCFG: one byte, 0x5A open, 0xA5 password, all else closed
  std::uint32_t debugIdOffset = 0;    // in the CCFG: 8 bytes, most significant first
  std::uint32_t debugHashOffset = 0;  // in the CCFG: 32 bytes, SHA-256 of the password words

  HsmKind hsm = HsmKind::None;
  std::uint8_t lifeCycle = 5;  // of a new chip: 3, 4 and 5 let SACI be left
};

// Throws std::runtime_error naming the first fact that cannot be: a field outside its sector, regions that
// overlap, sizes that are no whole words.
void CheckDescription(const ChipDescription& description);

}  // namespace simulator
