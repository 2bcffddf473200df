#include <gtest/gtest.h>

#include "TestChip.h"
#include "tests/support/ErrorOf.h"

namespace simulator {
namespace {

TEST(ChipDescriptionTest, SaysWhatCannotBe) {
  const struct {
    void (*change)(ChipDescription&);
    const char* error;
  } cases[] = {
      {[](ChipDescription& c) { c.sectorSize = 0; }, "the sector size is no whole number of words"},
      {[](ChipDescription& c) { c.sectorSize = 62; }, "the sector size is no whole number of words"},
      {[](ChipDescription& c) { c.mainSize = 0; }, "MAIN is no whole number of sectors"},
      {[](ChipDescription& c) { c.mainSize += 4; }, "MAIN is no whole number of sectors"},
      {[](ChipDescription& c) { c.ramSize = 0x101; }, "RAM is no whole number of words"},
      {[](ChipDescription& c) { c.otpBase = 0x4C00'00FC; }, "OTP overlaps CCFG"},
      {[](ChipDescription& c) { c.ccfgBase = 0; }, "CCFG overlaps MAIN"},
      {[](ChipDescription& c) { c.ramBase = 0x4C00'1000; }, "RAM overlaps SCFG"},
      {[](ChipDescription& c) { c.ramBase = 0xFFFF'FF04; }, "RAM does not fit 32-bit addresses"},
      {[](ChipDescription& c) { c.otpSize = 2052, c.scfgBase += 0x1000; }, "OTP is larger than 2048 bytes"},
      {[](ChipDescription& c) { c.userRecord.offset = 0xF0; }, "the user record does not fit the CCFG"},
      {[](ChipDescription& c) { c.userRecord.length = 0; }, "the user record does not fit the CCFG"},
      {[](ChipDescription& c) { c.debugCfgCrc.length = 0x7D; },
       "the range of the debug configuration CRC and its word do not fit the sector"},
      {[](ChipDescription& c) { c.bootCfgCrc.length = 0; },
       "the range of the boot configuration CRC and its word do not fit the sector"},
      {[](ChipDescription& c) { c.ccfgCrc.length = 0; },
       "the range of the CCFG CRC and its word do not fit the sector"},
      {[](ChipDescription& c) { c.userRecordCrc.offset = 0xE4; },
       "the range of the user record CRC and its word do not fit the sector"},
      {[](ChipDescription& c) { c.scfgCrc.length = 0xFFFF'FFFF; },
       "the range of the SCFG CRC and its word do not fit the sector"},
      {[](ChipDescription& c) { c.chipEraseRetainWords = 4; }, "the retain field has not 2, 3 or 5 words"},
      {[](ChipDescription& c) { c.chipEraseRetainOffset = 0xF5; }, "the retain field does not fit the CCFG"},
      {[](ChipDescription& c) { c.retainGroupShift = 5; }, "the retain field's group shift is above 4"},
      {[](ChipDescription& c) { c.debugHashOffset = 0xE1; }, "the debug authorization does not fit the CCFG"},
      {[](ChipDescription& c) { c.debugIdOffset = 0xF9; }, "the debug authorization does not fit the CCFG"},
      {[](ChipDescription& c) { c.debugTypeOffset = 0x100; },
       "the debug authorization does not fit the CCFG"},
  };
  ChipDescription full = SmallChip();
  full.ramBase = 0xFFFF'FF00, full.scfgBase = 0x4C00'0000 - full.scfgSize, full.otpBase = 0x4C00'0100;
  full.bootCfgCrc.length = 1, full.otpSize = 2048, full.chipEraseRetainOffset = 0xF4,
  full.retainGroupShift = 4;
  full.debugHashOffset = 0xE0, full.debugIdOffset = 0xF8, full.debugTypeOffset = 0xFF;
  EXPECT_EQ(ErrorOf([&] { Chip chip(full); }), "ok");
  ChipDescription poor = SmallChip();  // what is not there is in nobody's way
  poor.scfgSize = poor.ramSize = 0, poor.scfgBase = poor.otpBase + 4, poor.ramBase = poor.ccfgBase + 4;
  EXPECT_EQ(ErrorOf([&] { Chip chip(poor); }), "ok");
  for (const auto& c : cases) {
    ChipDescription description = SmallChip();
    c.change(description);
    EXPECT_EQ(ErrorOf([&] { Chip chip(description); }), std::string("Chip description small: ") + c.error);
  }
}

}  // namespace
}  // namespace simulator
