// Where the bytes of a block go, by address, and what the first block of a load sets going.

#include "DeviceTest.h"

namespace {

using IntakeTest = DeviceTest;

TEST_F(IntakeTest, RamDataAloneStartsNothing) {
  EXPECT_EQ(WriteFirst(kRam, Pattern(8)), "ok");
  EXPECT_EQ(Joined(Plot()), "identify\n");
  EXPECT_EQ(Write(0, Pattern(8)), "ok");
  EXPECT_EQ(CallCount("ResetTarget 0"), 1U);
  EXPECT_EQ(Write(kRam + 8, Pattern(8)), "ok");
  EXPECT_EQ(Write(0x800, Pattern(8)), "ok");
  EXPECT_EQ(CallCount("ResetTarget 0"), 1U);
}

// What one block alone makes of a load, told by the SACI commands of the whole load and the RAM writes.
TEST_F(IntakeTest, EachRegionHasItsDestination) {
  host.properties["FlashEraseSetting"] = "Do not erase sectors (program load only)";
  host.properties["DeviceInfoFlashSizeTranslation"] = "*:*:*:0x4000";
  const std::vector<std::uint8_t> kMain = {15, 16}, kCcfgIds = {12, 17}, kRecord = {13, 17},
                                  kScfgIds = {26, 27}, kOtpIds = {25}, kBoth = {12, 17, 25}, kNone = {};
  const struct {
    std::uint32_t address;
    std::size_t length;
    std::vector<std::uint8_t> programmed;
  } cases[] = {
      {0, 4, kMain},
      {0x3FFF, 1, kMain},
      {0x3FFF, 2, kNone},  // a block that leaves its region by a byte belongs to none
      {kCcfg, 1, kCcfgIds},
      {kCcfg - 1, 2, kNone},
      {kCcfg, kCcfgSize, kCcfgIds},
      {kCcfg, kCcfgSize + 1, kNone},
      {kCcfg, kCcfgSize + kOtpSize, kBoth},
      {kCcfg + 4, kCcfgSize + kOtpSize, kNone},
      {kUserRecord, kUserRecordSize, kRecord},
      {kUserRecord, 1, kRecord},
      {kUserRecord, kUserRecordSize + 1, kCcfgIds},
      {kUserRecord + 4, kUserRecordSize, kCcfgIds},
      {kOtp, kOtpSize, kOtpIds},
      {kOtp + kOtpSize - 1, 1, kOtpIds},
      {kOtp - 1, 2, kNone},
      {kOtp, kOtpSize + 1, kNone},
      {kScfg, kScfgSize, kScfgIds},
      {kScfg - 1, 2, kNone},
      {kScfg, kScfgSize + 1, kNone},
      {kScfg + kScfgSize, 1, kNone},
      {0xFFFFFFF0, 4, kNone},
  };
  for (const auto& c : cases) {
    host.memory.clear();
    EXPECT_EQ(WriteFirst(c.address, Pattern(c.length)), "ok");
    EXPECT_EQ(End(), "ok");
    EXPECT_EQ(Programmed(), c.programmed) << Hex8(c.address) << "+" << c.length;
    EXPECT_EQ(host.memory.size(), c.programmed.empty() ? c.length : 0) << Hex8(c.address) << "+" << c.length;
  }
}

// CCFG inside MAIN, SCFG over OTP: a piece goes to CCFG before OTP before SCFG before MAIN.
TEST_F(IntakeTest, WhereRegionsOverlapTheirOrderDecides) {
  host.properties["FlashEraseSetting"] = "Do not erase sectors (program load only)";
  host.properties["CcfgBase"] = "0x1000";
  host.properties["OtpBase"] = "0x2000";
  host.properties["ScfgBase"] = "0x2000";
  const struct {
    std::uint32_t address;
    std::size_t length;
    std::vector<std::uint8_t> programmed;
  } cases[] = {
      {0x1000, 4, {12, 17}},
      {0x17FF, 2, {15, 16}},
      {0x2000, kOtpSize, {25}},
      {0x2000, kOtpSize + 1, {26, 27}},
      {0x2000 + kScfgSize, 1, {15, 16}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(WriteFirst(c.address, Pattern(c.length)), "ok");
    EXPECT_EQ(End(), "ok");
    EXPECT_EQ(Programmed(), c.programmed) << Hex8(c.address) << "+" << c.length;
  }

  // A block is known to touch flash by MAIN first: the erase comes before the user record is recognised.
  host.properties["FlashEraseSetting"] = "Chip Erase";
  EXPECT_EQ(WriteFirst(0x1700, Pattern(kUserRecordSize)), "ok");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1, 9, 13, 17}));
}

TEST_F(IntakeTest, TheAliasOfFlashIsOfTheHighParts) {
  const struct {
    Part part;
    bool aliased;
  } cases[] = {{Part::Serin, false},
               {Part::CorvelHighPg1, true},
               {Part::CorvelHighPg2, true},
               {Part::CorvelHighNew, true},
               {Part::CorvelMid, false}};
  for (const auto& c : cases) {
    Be(c.part);
    EXPECT_EQ(WriteFirst(0x10001000, Pattern(4)), "ok");
    if (c.aliased) {
      EXPECT_EQ(Command(15).words.at(2), 0x1000U);
    } else {
      EXPECT_EQ(Saci(), "");
      host.memory.clear();
      EXPECT_EQ(End(), "ok");
      EXPECT_EQ(host.memory.count(0x10001000), 1U);
    }
    // Bit 28 is cleared wherever the block lies.
    EXPECT_EQ(WriteFirst(kCcfg | 0x10000000, Pattern(4)), "ok");
    EXPECT_EQ(CallCount("ResetTarget 0"), c.aliased ? 1U : 0U);
  }
}

TEST_F(IntakeTest, CcfgFollowedByOtpIsSplit) {
  const Bytes block = Pattern(kCcfgSize + kOtpSize);
  host.properties["CcfgSkipProgrammingUserRecord"] = "0";
  EXPECT_EQ(WriteFirst(kCcfg, block), "ok");
  EXPECT_EQ(End(), "ok");
  EXPECT_EQ(Payload(12), Bytes(block.begin(), block.begin() + kCcfgSize));
  Bytes otp = Payload(25);
  otp.resize(kOtpSize);
  EXPECT_EQ(otp, Bytes(block.begin() + kCcfgSize, block.end()));
}

// The second half of such a block takes the address behind the first for granted.
TEST_F(IntakeTest, OtpElsewhereGetsOnlyWhatLiesInIt) {
  const Bytes block = Pattern(kCcfgSize + kOtpSize);
  host.properties["OtpBase"] = "0x4E020780";
  EXPECT_EQ(WriteFirst(kCcfg, block), "ok");
  EXPECT_EQ(End(), "ok");
  Bytes otp(0x80);
  otp.insert(otp.end(), block.begin() + kCcfgSize, block.begin() + kCcfgSize + 0x80);
  otp.resize(Payload(25).size());
  EXPECT_EQ(Payload(25), otp);

  host.properties["OtpBase"] = "0x4E020801";
  EXPECT_EQ(Device().Initialize(), "ok");
  EXPECT_EQ(WriteFirst(kCcfg, block), "Image data at 0x4E020800 lies below its region");
}

TEST_F(IntakeTest, AUserRecordTurnsOffEraseAndSectorFilters) {
  host.properties["FlashPagesFilledWith"] = "1";
  host.properties["FlashPagesFilledWithValue"] = "nonsense";
  EXPECT_EQ(WriteFirst(kUserRecord, Pattern(kUserRecordSize)), "ok");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1, 13, 17}));
  EXPECT_EQ(CallCount("GetProperty FlashEraseSetting"), 0U);

  host.ForgetCalls();
  EXPECT_EQ(Write(kCcfg + 4, Pattern(4)), "ok");      // from here on every CCFG piece is a user record
  EXPECT_EQ(Write(kCcfg, Pattern(kCcfgSize)), "ok");  // and one that is longer is none
  EXPECT_EQ(Write(0x800, Bytes(kSector, 0xFF)), "ok");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{13, 17, 15, 16}));
  EXPECT_EQ(CallCount("GetProperty FlashPagesFilledWith"), 0U);

  EXPECT_EQ(WriteFirst(kCcfg + 4, Pattern(4)),
            "Invalid option was given \"nonsense\". Contains invalid characters!\n");
}

TEST_F(IntakeTest, TheFillFilterLooksAtEveryRegion) {
  host.properties["FlashPagesFilledWith"] = "1";
  EXPECT_EQ(WriteFirst(kCcfg, Bytes(kCcfgSize, 0xFF)), "ok");
  EXPECT_EQ(Write(kRam, Bytes(kSector, 0xFF)), "ok");
  EXPECT_EQ(Write(kRam + 0x804, Bytes(4, 0xFF)), "ok");
  EXPECT_EQ(End(), "ok");
  EXPECT_EQ(host.memory.size(), 4U);
  EXPECT_EQ(Programmed(), std::vector<std::uint8_t>{9});
}

TEST_F(IntakeTest, AFailedPieceStopsTheBlock) {
  host.properties["FlashPageToggle"] = "1";
  host.properties["FlashPages"] = "1";
  host.ReplyOnce(16, {.result = 0x87});
  EXPECT_EQ(WriteFirst(0, Pattern(3 * kSector)),
            "Error when verifying flash - Calculated CRC32 does not match expected CRC32");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1, 9, 15, 16}));
}

TEST_F(IntakeTest, VerificationIsAskedForEveryBlock) {
  EXPECT_EQ(WriteFirst(0, Pattern(4)), "ok");
  host.properties["ImageVerificationSetting"] = "1";
  host.ForgetCalls();
  EXPECT_EQ(Write(0x800, Pattern(4)), "ok");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{16}));
  host.properties["ImageVerificationSetting"] = "true";  // only "1" is yes
  host.ForgetCalls();
  EXPECT_EQ(Write(0x800, Pattern(4)), "ok");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{15, 16}));
}

TEST_F(IntakeTest, AnEmptyBlockIsRoutedLikeAnyOther) {
  EXPECT_EQ(WriteFirst(0x800, {}), "ok");
  EXPECT_EQ(Saci(),
            "SACI 1/0000, SACI 9/0000 5C17E94B, SACI 15/0000 5C17E94B 00000800, "
            "SACI 16/0000 00000800 00000000 00000000");
}

// As a whole the block lies in no region, so it starts nothing; the filter leaves a piece that lies in one. A
// CCFG piece taken now would end in a CCFG of zeros, which locks the chip.
TEST_F(IntakeTest, APieceThatReachesFlashUnannouncedIsRefused) {
  host.properties["FlashPagesFilledWith"] = "1";
  const Bytes filled(kSector, 0xFF);
  const Bytes given = Pattern(kCcfgSize);
  Bytes intoCcfg = filled;
  intoCcfg.insert(intoCcfg.end(), given.begin(), given.end());
  Bytes outOfMain = given;
  outOfMain.insert(outOfMain.end(), filled.begin(), filled.end());
  const std::pair<std::uint32_t, Bytes> blocks[] = {{kCcfg - kSector, intoCcfg},
                                                    {0x80000 - kSector, outOfMain}};
  for (const auto& [address, block] : blocks) {
    EXPECT_EQ(WriteFirst(address, block),
              "Image data of a block that lies only partly in flash cannot be programmed");
    EXPECT_EQ(host.CommandIds(), std::vector<std::uint8_t>{});
    EXPECT_EQ(End(), "ok");
    EXPECT_EQ(Programmed(), std::vector<std::uint8_t>{});
  }
}

// 32-bit sums would take it for MAIN flash, then for a CCFG of which nothing can be stored.
TEST_F(IntakeTest, ABlockThatReachesTheEndOf32BitAddressesIsRefused) {
  for (const std::size_t length : {0x10U, 0x20U})
    EXPECT_EQ(WriteFirst(0xFFFFFFF0, Pattern(length)),
              "Internal error in Flash Loader: The block does not fit in 32-bit addresses.");
  EXPECT_EQ(Write(0xFFFFFFF0, Pattern(0xF)), "ok");
}

// Nonsense lengths must not reach past the block that the host handed over.
TEST_F(IntakeTest, NegativeLengthsAreSurvived) {
  const Bytes block = Pattern(4);
  Device();
  for (const std::uint32_t address : {0U, 0x800U, kCcfg, kUserRecord, kScfg, kOtp, kRam, 0xFFFFFFFCU}) {
    EXPECT_EQ(Start(), "ok");
    for (const int length : {-1, -4, -0x800, INT32_MIN}) {
      host.ForgetCalls();
      const std::string outcome =
          Outcome(Device()->WriteDataToFlash(block.data(), Debugger::Address(address), length, 0));
      EXPECT_EQ(Saci().find("stream"), std::string::npos) << Hex8(address) << length << outcome;
    }
  }
}

}  // namespace
