#pragma once

#include <cstdint>

#include "host/device/MemoryMap.h"

namespace host {

// Bytes that a CRC-32 covers, counted from the start of their sector. The CRC word follows them.
struct CoveredRange {
  std::uint32_t offset = 0;
  std::uint32_t length = 0;
  bool operator==(const CoveredRange&) const = default;
};

// In which form a part's security module takes new firmware.
enum class HsmForm { None, Whole, Records };

// What the simulated part is made like. Stated in the description on its own, not derived from the
// properties, so that a wrong property meets a chip that disagrees.
struct ChipFacts {
  std::uint32_t deviceId = 0;  // CFG-AP DEVICEID: version 31..28, device 27..12
  std::uint32_t partId = 0;    // CFG-AP PARTID: variant 23..16, part number 15..0
  std::uint8_t lifeCycle = 0;
  std::uint32_t mainSize = 0;
  std::uint32_t sectorSize = 0;
  AddressRange ccfg;
  CoveredRange userRecord;  // inside the CCFG, its CRC word included
  AddressRange scfg;
  AddressRange otp;
  AddressRange ram;
  CoveredRange bootCrc, ccfgCrc, userRecordCrc, debugCrc;  // in the CCFG
  CoveredRange scfgCrc;                                    // in the SCFG
  std::uint32_t retainOffset = 0;                          // chip-erase-retain field, in the CCFG
  std::uint32_t retainWords = 0;
  std::uint32_t retainGroupShift = 0;         // lowest bit used in the field's second word
  std::uint32_t authorizationTypeOffset = 0;  // 1 byte, in the CCFG
  std::uint32_t authorizationIdOffset = 0;    // 8 bytes, most significant first
  std::uint32_t authorizationHashOffset = 0;  // 32 bytes, SHA-256
  HsmForm hsm = HsmForm::None;
};

}  // namespace host
