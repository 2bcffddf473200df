#include <gtest/gtest.h>

#include "TestChip.h"
#include "tests/support/ErrorOf.h"

namespace simulator {
namespace {

TEST(DebugPortsTest, EachAccessTakesARoundTripAndItsWords) {
  const struct {
    const char* probe;
    Nanoseconds roundTrip, word;
  } cases[] = {{"hs", 150'000, 4'600}, {"fs", 1'000'000, 11'500}};
  for (const auto& c : cases) {
    Chip chip(SmallChip());
    DebugPorts ports(chip, FindProbeTiming(c.probe).value());
    const auto cost = [&](auto&& access) {
      const Nanoseconds before = chip.Clock().Now();
      access();
      return chip.Clock().Now() - before;
    };
    ports.Connect();
    Words words(512);
    Bytes bytes(10);
    const Nanoseconds oneWord = c.roundTrip + c.word;
    EXPECT_EQ(cost([&] { ports.ReadRegister(0x0001'0000); }), oneWord);
    EXPECT_EQ(cost([&] { ports.WriteRegister(0x0002'0004, 0); }), oneWord);
    EXPECT_EQ(cost([&] { ports.WriteTxWords(words); }), c.roundTrip + 512 * c.word);
    EXPECT_EQ(cost([&] { ports.ReadRxWords(words); }), c.roundTrip + 512 * c.word);
    EXPECT_EQ(cost([&] { ports.WriteMemory(0x2000'0000, bytes); }), c.roundTrip + 3 * c.word);
    EXPECT_EQ(cost([&] { ports.ReadMemory(0x2000'0000, bytes); }), c.roundTrip + 3 * c.word);
    EXPECT_EQ(cost([&] { ports.Sleep(7); }), 7 * kMillisecond);
    EXPECT_EQ(ports.Counted().roundTrips, 7u);
    EXPECT_EQ(ports.Counted().words, 1024u + 8u);
  }
}

TEST(DebugPortsTest, KnowsTheRegistersByNameAndAddressOnly) {
  TestChip target;
  EXPECT_EQ(target.Read("CFGAP_DEVICEID"), 0x2BB9'802Fu);
  EXPECT_EQ(target.Read("CFGAP_PARTID"), 0x8012'3456u);
  EXPECT_FALSE(FindRegister("secap_txctl"));
  EXPECT_FALSE(FindRegister(""));
  EXPECT_FALSE(FindProbeTiming("HS"));
  EXPECT_EQ(ErrorOf([&] { target.ports.ReadRegister(0x0001'0002); }), "No register at address 0x00010002");
  EXPECT_EQ(ErrorOf([&] { target.ports.WriteRegister(0x1'0001'0000, 0); }),
            "No register at address 0x100010000");
}

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
      {[](ChipDescription& c) { c.ramBase = 0xFFFF'FF04; }, "RAM does not fit 32-bit addresses"},
      {[](ChipDescription& c) { c.otpSize = 2052, c.scfgBase += 0x1000; }, "OTP is larger than 2048 bytes"},
      {[](ChipDescription& c) { c.userRecord.offset = 0xF0; }, "the user record does not fit the CCFG"},
      {[](ChipDescription& c) { c.userRecord.length = 0; }, "the user record does not fit the CCFG"},
      {[](ChipDescription& c) { c.debugCfgCrc.length = 0x7D; },
       "the range of the debug configuration CRC and its word do not fit the sector"},
      {[](ChipDescription& c) { c.bootCfgCrc.length = 0; },
       "the range of the boot configuration CRC and its word do not fit the sector"},
      {[](ChipDescription& c) { c.scfgCrc.length = 0xFFFF'FFFF; },
       "the range of the SCFG CRC and its word do not fit the sector"},
      {[](ChipDescription& c) { c.chipEraseRetainWords = 4; }, "the retain field has not 2, 3 or 5 words"},
      {[](ChipDescription& c) { c.chipEraseRetainOffset = 0xF5; }, "the retain field does not fit the CCFG"},
      {[](ChipDescription& c) { c.retainGroupShift = 5; }, "the retain field's group shift is above 4"},
      {[](ChipDescription& c) { c.debugHashOffset = 0xE1; }, "the debug authorization does not fit the CCFG"},
  };
  EXPECT_EQ(ErrorOf([] { Chip chip(SmallChip()); }), "ok");
  for (const auto& c : cases) {
    ChipDescription description = SmallChip();
    c.change(description);
    EXPECT_EQ(ErrorOf([&] { Chip chip(description); }), std::string("Chip description small: ") + c.error);
  }
}

}  // namespace
}  // namespace simulator
