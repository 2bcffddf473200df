#pragma once

#include <cstdint>

namespace simulator {

// Commands and results by the numbers that they have on the wire. Both are plain integers there, and any
// other number can come; hence no enum class.
enum SaciCommand : std::uint8_t {
  kNoOperation = 1,
  kReadPasswordId = 5,
  kSubmitPassword = 6,
  kExitHalt = 7,
  kExitShutdown = 8,
  kEraseChip = 9,
  kProgramCcfg = 12,
  kProgramUserRecord = 13,
  kProgramMainSector = 14,
  kProgramPipelined = 15,
  kVerifyMain = 16,
  kVerifyCcfg = 17,
  kResetDevice = 20,
  kExitRun = 21,
  kProgramOtp = 25,
  kProgramScfg = 26,
  kVerifyScfg = 27,
  kEraseMain = 28,  // the configuration stays
  kUpdateHsm = 33,
  kReadHsmInfo = 34,
  kReadHsmStatus = 35,
};

enum SaciResult : std::uint8_t {
  kDone = 0,
  kUnknownCommand = 128,
  kBadAddress = 129,
  kBadSize = 130,
  kBadKey = 131,
  kFlashError = 132,
  kOverflow = 133,
  kNotAllowed = 134,
  kCrcMismatch = 135,
  kBadPassword = 136,
  kNotBlank = 137,
  kHsmDoesNotBoot = 142,
  kHsmBadHeader = 143,
  kHsmOldVersion = 144,
  kHsmBadPayload = 145,
};

}  // namespace simulator
