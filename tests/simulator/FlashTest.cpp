#include <gtest/gtest.h>

#include "Transcript.h"
#include "simulator/Crc32.h"
#include "tests/support/ErrorOf.h"

namespace simulator {
namespace {

TEST(FlashTest, ProgramsAndVerifies) {
  // CRC-32 of 64 bytes of 0xFF is 0F6187BA, from an independent tool.
  const Transcript transcripts[] = {
      {"MAIN takes the stated bytes at the address", R"(
          6010E KEY 44 44332211 88776655 -> 10E
          main 40 = FFFFFFFF 44332211 FFFF6655 FFFFFFFF)"},
      {"programming only clears bits until an erase", R"(
          4010E KEY 0 FF00F0F0 -> 10E; 4020E KEY 0 0FFFFF00 -> 20E; main 0 = 0F00F000
          309 KEY -> 309; main 0 = FFFFFFFF)"},
      {"the CRC sees one bit, in its sector", R"(
          110 40 40 0F6187BA -> 110; 4020E KEY 7C 7FFFFFFF -> 20E
          310 40 40 0F6187BA -> 870310; 410 80 40 0F6187BA -> 410)"},
      {"the blank check sees one zero bit and ignores the CRC", R"(
          80000110 0 4B00 0 -> 110; 4020E KEY 4AFC BFFFFFFF -> 20E
          80000310 0 4B00 0 -> 890310; 80000410 0 4AC0 0 -> 410)"},
      {"a chip erase takes CCFG and SCFG whole", R"(
          hold open; 40011A KEY 16*0 -> 11A; 209 KEY -> 209; ccfg 0 = 64*FFFFFFFF; scfg 0 = 16*FFFFFFFF)"},
      {"a cell that does not program", "fault cell:0x41; 4010E KEY 40 0 -> 10E; main 40 = 0000FF00"},
      {"a user record left out or blank is held against its own word", R"(
          1010C KEY CCFG -> 10C; ccfg 60 = 8*FFFFFFFF 0; pin; sleep 6; boot C0
          saci; 211 0 0 0 0 -> 870211; 20311 0 0 0 0 -> 311
          10C KEY CCFG -> 10C; 411 0 0 0 0 -> 411)"},
      {"CCFG's blank check sees the user record, too", R"(
          80000111 0 0 0 0 -> 111; 20D KEY FFFFFFFE 7*FFFFFFFF -> 20D; 80000311 0 0 0 0 -> 890311
          ccfg 5C = FFFFFFFF FFFFFFFE 8*FFFFFFFF)"},
      {"and the first and the last byte", R"(
          10C KEY FFFFFFFE 63*FFFFFFFF -> 10C; 80000211 0 0 0 0 -> 890211
          309 KEY -> 309; 40C KEY 63*FFFFFFFF 7FFFFFFF -> 40C; 80000511 0 0 0 0 -> 890511)"},
      {"SCFG takes the stated bytes", R"(
          22011A KEY 16*01020304 -> 11A; scfg 0 = 8*01020304 FFFF0304 7*FFFFFFFF)"},
      {"SCFG is verified against the given CRC or its own word", R"(
          40011A KEY 7*FFFFFFFF 80E3231D 8*0 -> 11A; 1021B 80E3231D -> 21B; 1031B 80E3231C -> 87031B
          41B 0 -> 41B; 4051A KEY 16*0 -> 51A; 61B 0 -> 87061B)"},
      {"OTP is written once; what was left erased can be written later, by a longer program", R"(
          60119 KEY 12345678 511*0 -> 119; otp 0 = 12345678 FFFF0000 6*FFFFFFFF
          60219 KEY 12345678 511*0 -> 219; mark
          200319 KEY 12345670 FFFF0000 510*FFFFFFFF -> 840319; 200419 KEY 12345678 511*0 -> 840419; unchanged
          200419 KEY 12345678 FFFF0001 510*FFFFFFFF -> 840419; unchanged
          409 KEY -> 409; otp 0 = 12345678 FFFF0000 6*FFFFFFFF
          200519 KEY 12345678 FFFF0000 510*11 -> 519; otp 8 = 6*11
          200619 KEY 12345678 FFFF0000 510*10 -> 840619)"},
  };
  PlayEach(transcripts);
}

TEST(FlashTest, TakesItsTimeToTheNanosecond) {
  const Transcript transcripts[] = {
      {"a command", "set TXCTL 2; set TXDATA 101; ns 19999; RXDATA = 0; ns 1; RXDATA = 101"},
      {"verifying a sector", "send 110 0 40 0; ns 20127; RXCTL = 4; ns 1; RXCTL = 1"},
      {"a user record", "send 10D KEY 8*0; ns 519999; RXCTL = 4; ns 1; RXCTL = 1"},
      {"a password", "hold password; send 30306 PASSWORD; ns 69999; RXCTL = 4; ns 1; RXCTL = 1"},
      {"the boot code", "send 107; ns 1865399; boot 80; boot 81"},
      {"an HSM image, refused and installed", R"(
          send 121 5; ns 1019999; RXCTL = 4; ns 1; RXCTL = 0; raw 0; ns 999999; RXCTL = 4; ns 1; RXCTL = 9
          answer 8F0121; send 221 5; ns 1020000; raw 464D5348 20000 1 ABDE5729 9
          ns 79999999; RXCTL = 4; ns 1; RXCTL = 1; answer 221)"},
      {"a sector of a pipelined transfer", R"(
          send 10F KEY 0; raw 16*0; RXCTL = 4; ns 139999; RXCTL = 4; ns 1; RXCTL = 1)"},
      {"a third sector that comes as soon as the first is programmed", R"(
          send 10F KEY 0; raw 16*1 16*2; ns 66400; set TXDATA 3; raw 15*3; answer 10F; answer 20F; answer 30F)"},
      {"an erase, with the next word waiting for its end", R"(
          set TXCTL 2; set TXDATA 109; set TXCTL 0; set TXDATA 5C17E94B; ns 20000; set TXCTL 2; set TXDATA 201
          ns 39999999; TXCTL = 3; ns 1; TXCTL = 2)"},
  };
  PlayEach(transcripts);
}

TEST(FlashTest, ComparesEachGivenCrcOfTheCcfg) {
  TestChip target;
  const Bytes ccfg = ValidCcfg(kOpen);
  target.Command(Joined({0x0000'010C, kKey}, AsWords(ccfg)));
  Words right;
  for (const ByteRange range : {ByteRange{0x00, 0x0C}, {0x10, 0x4C}, {0x60, 0x1C}, {0x80, 0x7C}})
    right.push_back(Crc32(std::span(ccfg).subspan(range.offset, range.length)));
  EXPECT_EQ(target.Command(Joined({0x0001'0111}, right)), (Words{0x0000'0111}));
  for (std::size_t i = 0; i < 4; ++i) {
    Words wrong = right;
    wrong[i] ^= 0x8000'0000;
    EXPECT_EQ(target.Command(Joined({0x0001'0211}, wrong)), (Words{0x0087'0211})) << i;
    const std::uint32_t skipped = i == 2 ? 0x0000'0311 : 0x0087'0311;
    EXPECT_EQ(target.Command(Joined({0x0003'0311}, wrong)), (Words{skipped})) << i << ", record skipped";
  }
}

TEST(FlashTest, APowerCutKeepsTheWordsWrittenAndKillsTheChipUntilThePowerComesBack) {
  TestChip target;
  const auto cutDuring = [&](const Words& command) {
    EXPECT_EQ(ErrorOf([&] { target.Command(command); }), "The chip lost power");
    const char* dead = "The chip does not answer: it has no power";
    EXPECT_EQ(ErrorOf([&] { target.BootStatus(); }), dead);
    EXPECT_EQ(ErrorOf([&] { target.PinReset(); }), dead);
    target.chip.PowerCycle();
    target.EnterSaci();
  };
  target.chip.AskedFaults().Add("power:after=2");
  cutDuring({0x000C'010E, kKey, 0, 1, 2, 3});
  Play(target, {"two words", "main 0 = 1 2 FFFFFFFF; 8020E KEY 0 1 2 -> 20E"});
  target.chip.AskedFaults().Add("power:after=1");
  cutDuring({0x0002'010E, kKey, 8, 0});
  Play(target, {"part of a word counts as one", "main 8 = FFFF0000"});
  target.chip.AskedFaults().Add("power:after=1");
  EXPECT_NE(ErrorOf([&] { target.Command({0x0004'010E, kKey, 0x10, 0}); }), "ok");
  Play(target, {"another chip in its place has power, and keeps it", "hold open; 8010E KEY 10 0 0 -> 10E"});
}

}  // namespace
}  // namespace simulator
