// Where the bytes of a block go, by address, and what the first block of a load sets going.

#include "DeviceTest.h"

namespace {

using IntakeTest = DeviceTest;

// What one block alone makes of a load: the SACI commands, and how many bytes of RAM are written.
TEST(Intake, EachRegionHasItsDestination) {
  const struct {
    const char *block, *commands;
    std::size_t ramBytes;
  } rows[] = {
      {"0+4", "1 15@0+800 16 1 5", 0},
      {"3FFF+1", "1 15@3800+800 16 1 5", 0},
      {"3FFF+2", "1 5", 2},  // a block that leaves its region by a byte belongs to none
      {"4000+0", "1 15@4000+0 16 1 5", 0},
      {"4E020000+1", "1 12/1 17/3", 0},
      {"4E01FFFF+2", "1 5", 2},
      {"4E020000+800", "1 12/1 17/3 1 5", 0},
      {"4E020000+801", "1 5", 0x801},
      {"4E020000+900", "1 12/1 17/3 25/100 1 5", 0},
      {"4E020000+8FF", "1 5", 0x8FF},
      {"4E020001+900", "1 5", 0x900},
      {"4E0207FF+1", "1 12/1 17/3", 0},
      {"4E020700+80", "1 13 17 1 5", 0},
      {"4E020700+1", "1 13 17 1 5", 0},
      {"4E020700+81", "1 12/1 17/3", 0},
      {"4E020704+80", "1 12/1 17/3", 0},
      {"4E020700+101", "1 5", 0x101},
      {"4E020800+100", "1 25/100 1 5", 0},
      {"4E0208FF+1", "1 25/100 1 5", 0},
      {"4E0207FF+2", "1 5", 2},
      {"4E020800+101", "1 5", 0x101},
      {"4E040000+400", "1 26/400 27/1 1 5", 0},
      {"4E03FFFF+2", "1 5", 2},
      {"4E040000+401", "1 5", 0x401},
      {"4E040400+1", "1 5", 1},
      {"FFFFFFF0+F", "1 5", 0xF},
      {"10001000+4", "1 5", 4},
  };
  for (const auto& row : rows) {
    Bench bench;
    bench.Play("DeviceInfoFlashSizeTranslation=*:*:*:0x4000; " + kNoErase + "start . " + row.block + " end");
    const std::string commands = bench.Commands();
    EXPECT_EQ(commands, row.commands) << row.block;
    EXPECT_EQ(bench.host.memory.size(), row.ramBytes) << row.block;
  }
}

TEST(Intake, ARegionThatIsNotThereHoldsNothing) {
  const auto commands = [](const std::string& script) {
    Bench bench;
    bench.Play(script);
    return bench.Commands();
  };
  const std::string regionless = "ScfgSize=0; OtpSize=0; CcfgSize=0; start . ";
  for (const std::string block : {"4E020000+0", "4E020800+0", "4E040000+0"})
    EXPECT_EQ(commands(regionless + block), "") << block;
  // MAIN flash of unknown size is taken to end at 16 MB, and has no sector that may be programmed.
  const std::string unknown = "DeviceInfoFlashSizeTranslation=; start . ";
  EXPECT_EQ(commands(unknown + "FFFFFF+1"), "1 9");
  EXPECT_EQ(commands(unknown + "FFFFFF+2"), "");
  EXPECT_EQ(commands(unknown + "1000000+1"), "");
  // A user record that fills the CCFG; with the OTP behind it, it is none.
  const std::string small = "CcfgSize=80; CcfgUserRecordSize=80; ccfg.userRecord.crc32Info=0:7C; start . ";
  EXPECT_EQ(commands(small + "4E020000+80"), "1 13 17");
  EXPECT_EQ(commands(small + "4E020000+180"), "1 9");
}

// CCFG inside MAIN, SCFG over OTP: a piece goes to CCFG before OTP before SCFG before MAIN.
TEST(Intake, WhereRegionsOverlapTheirOrderDecides) {
  const std::vector<Row> plays = {
      {"1000+800", "1 9"},
      {"17FF+2", "1 9 15@1000+1000 16"},
      {"2000+100", "1 9"},
      {"2000+101", "1 9"},
      {"2400+1", "1 9 15@2000+800 16"},
      // Known to touch flash by MAIN first: the erase comes before the user record is recognised.
      {"1700+80", "1 9 13 17"},
  };
  ExpectPlays("CcfgBase=0x1000; OtpBase=0x2000; ScfgBase=0x2000; PermissionsSetting=0; start; ", plays);
}

TEST(Intake, TheFirstFlashBlockStartsTheLoad) {
  const std::string bad = "! Invalid option was given \"nonsense\". Contains invalid characters!\n";
  const std::string partly = "! Image data of a block that lies only partly in flash cannot be programmed";
  const std::string beyond = "! Internal error in Flash Loader: The block does not fit in 32-bit addresses.";
  const std::string fill = "FlashPagesFilledWith=1; ";
  const std::vector<Row> plays = {
      {"start . r", ""},
      {"start r . m 20000008+8 800+8", "1 9 15@0+800 16 15@800+800 16"},
      {"start . 800+0", "1 9 15@800+0 16"},  // an empty block is routed like any other
      // Only the high parts have the alias of flash; bit 28 is cleared wherever the block lies.
      {"part=HighPg1; start . 10001000+4", "1 9 15@1000+800 16"},
      {"part=HighPg2; start . 10001000+4", "1 9 15@1000+800 16"},
      {"part=HighNew; start . 10001000+4", "1 9 15@1000+800 16"},
      {"part=Mid; start . 10001000+4", ""},
      {"start . 10001000+4", ""},
      {"part=HighPg1; start . 5E020000+4", "1 9"},
      {"start . 5E020000+4", ""},
      // A user record turns off the erase and the filters; from there on every CCFG piece is one.
      {fill + "FlashPagesFilledWithValue=nonsense; start . u 4E020004+4 c 800*800",
       "1 13 17 13 17 15@800+800 16"},
      {fill + "FlashPagesFilledWithValue=nonsense; start . 4E020004+4", "1 9 | " + bad},
      {"FlashPageToggle=1; FlashPages=1; 16!87; start . 0+1800",  // a failed piece stops the block
       "1 9 15@0+800 16 | ! Error when verifying flash - Calculated CRC32 does not match expected CRC32"},
      // Verification is asked for every block, and only "1" is yes.
      {"start m; ImageVerificationSetting=1; . 800+4; ImageVerificationSetting=true; 800+4",
       "16 15@800+800 16"},
      // 32-bit sums would take it for MAIN flash, then for a CCFG of which nothing can be stored.
      {"start . FFFFFFF0+10", beyond},
      {"start . FFFFFFF0+20", beyond},
      // As a whole the block lies in no region, so it starts nothing; a CCFG piece of it would end in a
      // CCFG of zeros, which locks the chip.
      {fill + "start . 7F800+900", ""},
      {"OtpBase=0x4E020801; start . 4E020000+900", "1 9 | ! Image data at 0x4E020800 lies below its region"},
  };
  ExpectPlays("", plays);
  for (const bool intoCcfg : {true, false}) {
    Bench bench;
    bench.Play(fill + "start");
    Bytes block = Pattern(2 * kSector);
    std::fill_n(block.begin() + (intoCcfg ? 0 : kSector), kSector, std::uint8_t{0xFF});
    const std::uint32_t address = (intoCcfg ? kCcfg : 0x80000) - kSector;
    EXPECT_EQ("! " + bench.Device().Write(address, block), partly);
    EXPECT_EQ(bench.Play("end"), "1 5");
  }
}

TEST_F(IntakeTest, CcfgFollowedByOtpIsSplit) {
  const Bytes block = Pattern(kCcfgSize + kOtpSize);
  Play("CcfgSkipProgrammingUserRecord=0; start 4E020000+900 end");
  EXPECT_EQ(Payload(12), Bytes(block.begin(), block.begin() + kCcfgSize));
  Bytes otp(block.begin() + kCcfgSize, block.end());
  otp.resize(2048);
  EXPECT_EQ(Payload(25), otp);

  // The second half takes the address behind the first for granted: elsewhere the OTP gets what lies in it.
  Play("OtpBase=0x4E020780; init start 4E020000+900 end");
  otp.assign(0x80, 0);
  otp.insert(otp.end(), block.begin() + kCcfgSize, block.begin() + kCcfgSize + 0x80);
  otp.resize(2048);
  EXPECT_EQ(Payload(25), otp);
}

TEST_F(IntakeTest, TheFillFilterLooksAtEveryRegion) {
  Play("FlashPagesFilledWith=1; start 4E020000*800 20000000*800 20000804*4 end");
  EXPECT_EQ(host.memory.size(), 4U);
  EXPECT_EQ(host.CommandIds(), (Bytes{1, 9, 1, 5}));
}

// Nonsense lengths must not reach past the block that the host handed over.
TEST_F(IntakeTest, NegativeLengthsAreSurvived) {
  const Bytes block = Pattern(4);
  for (const std::uint32_t address : {0U, 0x800U, kCcfg, kUserRecord, kScfg, kOtp, kRam, 0xFFFFFFFCU}) {
    Play("start");
    for (const int length : {-1, -4, -0x800, INT32_MIN}) {
      EXPECT_STRNE(Device()->WriteDataToFlash(block.data(), Debugger::Address(address), length, 0), nullptr);
      EXPECT_EQ(host.CommandIds(), Bytes{});
    }
  }
}

}  // namespace
