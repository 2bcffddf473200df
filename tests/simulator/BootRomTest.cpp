#include <gtest/gtest.h>

#include "Transcript.h"
#include "tests/support/ErrorOf.h"

namespace simulator {
namespace {

TEST(BootRomTest, BootsLeavesAndAuthorizes) {
  const Transcript transcripts[] = {
      {"a pin reset boots the application only with a valid CCFG; the user record does not count", R"(
          pin; sleep 6; boot 20; hold open; pin; sleep 6; boot C0
          hold open F; pin; sleep 6; boot 20; hold open 20; pin; sleep 6; boot 20
          hold open FF; pin; sleep 6; boot 20; hold open 60; pin; sleep 6; boot C0)"},
      {"other reset requests do nothing", "107 -> 107; sleep 3; set RSTCTL 5D; sleep 10; boot 81"},
      {"a reset forgets a word that nobody took", "107 -> 107; sleep 3; send 201; TXCTL = 3; saci; answer -"},
      {"halt, blank", "107 -> 107; boot 80; sleep 3; boot 81; ahb 1"},
      {"halt, valid", "hold open; 107 -> 107; boot 80; sleep 3; boot C1; ahb 1"},
      {"run, blank", "115 -> 115; boot 80; sleep 3; boot 20; ahb 1"},
      {"run, valid", "hold open; 115 -> 115; boot 80; sleep 3; boot C0; ahb 1"},
      {"shutdown", "hold open; 108 -> 108; boot 8F; sleep 3; boot 8F; ahb 0"},
      {"the reset command waits until its acknowledgement was read", R"(
          hold open; send 10114; sleep 100; boot 20; answer 114; boot 1; sleep 6; boot C0
          saci; send 214; boot 1; TXCTL = 0; answer -; saci; send 314; sleep 1; set TXCTL 2; TXCTL = 2)"},
      {"no answer to it that could be read", "fault saci:20:lost; send 10114; boot 1; answer -"},
      {"closed", R"(
          hold closed; ahb 0; 105 -> 860105; 30306 PASSWORD -> 860306; 107 -> 860107
          115 -> 115; sleep 3; boot C0; ahb 0)"},
      {"closed by no known type", "hold FF; ahb 0; 30306 PASSWORD -> 860306; 107 -> 860107"},
      {"closed by the next to open", "hold 5B; ahb 0; 105 -> 860105; 115 -> 115; ahb 0"},
      {"the right password opens when SACI is left, until the next reset", R"(
          hold password; send 105; sleep 1; RXCTL = 1; RXDATA = 2000105
          RXCTL = 1; RXDATA = 89ABCDEF; RXCTL = 1; RXDATA = 01234567; 30306 PASSWORD -> 306; ahb 0
          107 -> 107; ahb 1; pin; sleep 6; ahb 0)"},
      {"a wrong one", R"(
          hold password; 30306 6E65706F 73657320 20656D61 -> 880306; 107 -> 860107; 115 -> 115; ahb 0)"},
      {"one word too many",
       "hold password; 40306 PASSWORD 0 -> 880306; 100406 16*0 -> 880406; 107 -> 860107"},
      {"its first word", "hold password; 10306 6E65706F -> 880306; 107 -> 860107"},
      {"a new CCFG counts from the next reset", R"(
          hold password; 109 KEY -> 109; 205 -> 2000205 89ABCDEF 01234567; 30306 PASSWORD -> 306
          saci; ahb 1; hold closed; ahb 0; 10C KEY 64*0 -> 10C; ahb 0; saci; ahb 1)"},
  };
  PlayEach(transcripts);
}

TEST(BootRomTest, ANewChipBootsInVirtualTimeWithTheAhbApClosed) {
  Chip chip(SmallChip());
  chip.SetLifeCycle(4);
  const auto status = [&] { return chip.ReadRegister(Register::CfgApDeviceStatus); };
  chip.Clock().Advance(5 * kMillisecond - 1);
  EXPECT_EQ(status(), 0x0000'0104u);
  chip.Clock().Advance(1);
  EXPECT_EQ(status(), 0x0100'2004u);
  EXPECT_EQ(chip.ReadRegister(Register::SecApTxCtl), 0u);
  EXPECT_EQ(chip.State().ram, Bytes(0x100, 0));
}

TEST(BootRomTest, TheAhbApReachesAllMemoriesButWritesOnlyRam) {
  TestChip target;
  const Bytes bytes = {1, 2, 3, 4, 5};
  Bytes back(5);
  const auto read = [&](std::uint32_t at) { return ErrorOf([&] { target.ReadMemory(at, back); }); };
  const auto write = [&](std::uint32_t at) { return ErrorOf([&] { target.WriteMemory(at, bytes); }); };
  EXPECT_EQ(write(0x2000'0003), "ok");
  EXPECT_EQ(read(0x2000'0003), "ok");
  EXPECT_EQ(back, bytes);
  EXPECT_EQ(target.Contents().ram[3], 1);
  for (const std::uint32_t last : {0x0000'4AFBu, 0x4C00'00FBu, 0x4C00'103Bu, 0x4C00'081Bu}) {
    EXPECT_EQ(read(last), "ok") << last;
    EXPECT_NE(read(last + 1), "ok") << last;
    EXPECT_NE(write(last), "ok") << last;
  }
  EXPECT_EQ(write(0x2000'00FC), "Bus error: writing 5 bytes at 0x200000FC");
  EXPECT_EQ(read(0xFFFF'FFFE), "Bus error: reading 5 bytes at 0xFFFFFFFE");
  target.PinReset();
  EXPECT_EQ(target.Contents().ram[3], 1) << "RAM outlives a reset";
  target.Sleep(6);
  target.chip.PowerCycle();
  EXPECT_EQ(target.Contents().ram[3], 0) << "but no power cycle";
  EXPECT_EQ(target.BootStatus(), 1u) << "which boots";

  Play(target, {"closed", "hold password"});
  EXPECT_EQ(read(0x2000'0000), "The AHB access port is not enabled");
  EXPECT_EQ(write(0x2000'0000), "The AHB access port is not enabled");
  Play(target, {"opened by the time that it is read", "30306 PASSWORD -> 306; send 107; sleep 1"});
  EXPECT_EQ(read(0x2000'0000), "ok");
  Play(target, {"or written", "saci; 30306 PASSWORD -> 306; send 107; sleep 1"});
  EXPECT_EQ(write(0x2000'0000), "ok");
}

}  // namespace
}  // namespace simulator
