#include <gtest/gtest.h>

#include <utility>

#include "ProbeClient.h"
#include "TestChip.h"

namespace simulator {
namespace {

constexpr std::uint32_t kCsw = 0x00, kTar = 0x04, kDrw = 0x0C;  // of the AHB-AP, which is port 0
constexpr std::uint32_t kFailed = 0xDEAD'DEAD;

ChipDescription TwoPagesOfRam() {
  ChipDescription chip = SmallChip();
  chip.ramSize = 0x800;
  return chip;
}

struct MemApTest : testing::Test {
  MemApTest() {
    EXPECT_EQ(client.Connect(), "");
    client.transport.Sleep(10);
  }
  void At(std::uint32_t address, std::uint32_t csw) {
    client.Write(kCsw, csw);
    client.Write(kTar, address);
  }
  Chip chip{TwoPagesOfRam()};
  SwdTarget target{chip};
  ProbeClient client{target};
};

TEST_F(MemApTest, EachSizeUsesItsLanesAndCountsUp) {
  const struct {
    std::uint32_t csw, address, mask, next;
  } cases[] = {
      {0x12, 0x2000'0000, 0xFFFF'FFFF, 0x2000'0004}, {0x11, 0x2000'0000, 0x0000'FFFF, 0x2000'0002},
      {0x11, 0x2000'0002, 0xFFFF'0000, 0x2000'0004}, {0x10, 0x2000'0003, 0xFF00'0000, 0x2000'0004},
      {0x10, 0x2000'0001, 0x0000'FF00, 0x2000'0002}, {0x02, 0x2000'0000, 0xFFFF'FFFF, 0x2000'0000},
      {0x12, 0x2000'03FC, 0xFFFF'FFFF, 0x2000'0000},  // wraps after 1 KiB
      {0x11, 0x2000'07FE, 0xFFFF'0000, 0x2000'0400},
  };
  for (const auto& c : cases) {
    At(c.address & ~3U, 2);
    client.Write(kDrw, 0);
    At(c.address, c.csw);
    client.Write(kDrw, 0x4433'2211);
    EXPECT_EQ(client.Read(kTar), c.next) << std::hex << c.address << " " << c.csw;
    client.Write(kTar, c.address);
    EXPECT_EQ(client.Read(kDrw), 0x4433'2211 & c.mask) << std::hex << c.address << " " << c.csw;
    EXPECT_EQ(client.Read(kTar), c.next) << std::hex << c.address << " " << c.csw;
    At(c.address & ~3U, 2);
    EXPECT_EQ(client.Read(kDrw), 0x4433'2211 & c.mask) << std::hex << c.address << " " << c.csw;
  }
}

TEST_F(MemApTest, BankedRegistersReachFourWords) {
  At(0x2000'0014, 0x12);
  for (std::uint32_t i = 0; i < 4; ++i) client.Write(0x10 + 4 * i, 0x100 + i);
  EXPECT_EQ(client.Read(kTar), 0x2000'0014u);
  EXPECT_EQ(client.Read(kDrw), 0x101u);
  EXPECT_EQ(client.Read(0x10), 0x100u);
  EXPECT_EQ(client.Read(0x1C), 0x103u);
  EXPECT_EQ(client.Read(0x20), 0u);
}

TEST_F(MemApTest, TheControlWordSaysWhatThePortCanDo) {
  const struct {
    std::uint32_t written, read;
  } cases[] = {{0x2300'0052, 0x2300'0052}, {3, 0x42}, {0x21, 0x41}, {0, 0x40}};
  for (const auto& c : cases) {
    client.Write(kCsw, c.written);
    EXPECT_EQ(client.Read(kCsw), c.read);
  }
  ChipState locked = chip.State();
  locked.ccfg = ValidCcfg(kClosed);
  chip.Restore(locked);
  client.transport.Sleep(10);
  At(0x2000'0000, 0x12);
  EXPECT_EQ(client.Read(kCsw), 0x12u) << "not enabled";
  EXPECT_EQ(client.Read(kDrw), kFailed);
}

TEST_F(MemApTest, ForgetsItsSettingsWithEachResetAndWithoutDebugPower) {
  EXPECT_EQ(client.Read(kCsw), 0x42u);
  EXPECT_EQ(client.Read(kTar), 0u);
  const std::pair<const char*, bool> cases[] = {
      {"05 00 01 04 00 00 00 50", true},                  // power asked for again
      {"05 00 02 04 00 00 00 10 04 00 00 00 50", true},   // debug power alone, then both
      {"05 00 02 04 00 00 00 40 04 00 00 00 50", false},  // system power alone
      {"05 00 02 08 10 00 00 02 01 5D 00 00 00", true},   // RSTCTL, but no request
      {"05 00 02 08 00 00 00 02 01 5C 00 00 00", true},   // TXDATA
      {"05 00 02 08 10 00 00 02 01 5C 00 00 00", false},
  };
  for (const auto& [packet, keeps] : cases) {
    At(0x2000'0010, 0x12);
    client.Ask(packet);
    client.transport.Sleep(10);
    EXPECT_EQ(client.Read(kCsw) & 0x3F, keeps ? 0x12u : 2u) << packet;
    EXPECT_EQ(client.Read(kTar), keeps ? 0x2000'0010u : 0u) << packet;
  }
}

TEST_F(MemApTest, WhatIsRefusedLeavesTheAddressAlone) {
  const struct {
    std::uint32_t csw, address;
    bool readable;
  } cases[] = {{0x12, 0x6000'0000, false},
               {0x12, 0x0000'0000, true},  // flash
               {0x11, 0x2000'0001, false},
               {0x12, 0x2000'0002, false},
               {0x12, 0x2000'0800, false}};
  for (const auto& c : cases) {
    At(c.address, c.csw);
    client.Write(kDrw, 1);
    EXPECT_EQ(client.Ask("08 00 1E 00 00 00"), "08 00");
    EXPECT_EQ(client.Read(kTar), c.address);
    EXPECT_EQ(client.Read(kDrw) != kFailed, c.readable) << std::hex << c.address;
    client.Ask("08 00 1E 00 00 00");
  }
}

}  // namespace
}  // namespace simulator
