#include <gtest/gtest.h>

#include "TestChip.h"
#include "tests/support/ErrorOf.h"

namespace simulator {
namespace {

struct BootRomTest : testing::Test {
  void Hold(const Bytes& ccfg) {
    ChipState state = BlankState(SmallChip());
    state.ccfg = ccfg;
    target.Become(state);
  }
  std::uint32_t StatusAfterPinReset() {
    target.ports.PinReset();
    target.ports.Sleep(6);
    return target.BootStatus();
  }
  Words SubmitPassword(const Words& words) {
    const auto count = static_cast<std::uint32_t>(words.size());
    return target.Command(Joined({0x0000'0306 | count << 16}, words));
  }
  TestChip target;
};

TEST_F(BootRomTest, APinResetBootsTheApplicationOnlyWithAValidCcfg) {
  EXPECT_EQ(StatusAfterPinReset(), 0x20u) << "blank";
  Hold(ValidCcfg(kOpen));
  EXPECT_EQ(StatusAfterPinReset(), 0xC0u);
  for (const std::size_t wrongByte : {0x0Fu, 0x20u, 0xFFu}) {
    Bytes ccfg = ValidCcfg(kOpen);
    ccfg[wrongByte] ^= 0x10;
    Hold(ccfg);
    EXPECT_EQ(StatusAfterPinReset(), 0x20u) << wrongByte;
  }
  Bytes withoutRecord = ValidCcfg(kOpen);
  withoutRecord[0x60] ^= 1;
  Hold(withoutRecord);
  EXPECT_EQ(StatusAfterPinReset(), 0xC0u) << "the user record does not count";
}

TEST_F(BootRomTest, BootsInVirtualTimeWithTheAhbApClosed) {
  Hold(ValidCcfg(kOpen));
  Chip& chip = target.chip;
  chip.WriteRegister(Register::SecApRstCtl, 0x5C);
  EXPECT_EQ(chip.ReadRegister(Register::CfgApDeviceStatus), 0x0000'0105u);
  chip.Clock().Advance(5 * kMillisecond - 1);
  EXPECT_EQ(chip.ReadRegister(Register::CfgApDeviceStatus), 0x0000'0105u);
  chip.Clock().Advance(1);
  EXPECT_EQ(chip.ReadRegister(Register::CfgApDeviceStatus), 0x0100'2005u);
}

TEST_F(BootRomTest, OtherResetRequestsDoNothing) {
  target.Command({0x0000'0107});
  target.ports.Sleep(3);
  target.Write("SECAP_RSTCTL", 0x5D);
  target.ports.Sleep(10);
  EXPECT_EQ(target.BootStatus(), 0x81u);
}

TEST_F(BootRomTest, LeavesSaciThroughBootCode) {
  const struct {
    const char* what;
    Bytes ccfg;
    std::uint32_t command;
    std::uint32_t atOnce, later;
  } cases[] = {
      {"halt, blank", Bytes(0x100, 0xFF), 0x0107, 0x80, 0x81},
      {"halt, valid", ValidCcfg(kOpen), 0x0107, 0x80, 0xC1},
      {"run, blank", Bytes(0x100, 0xFF), 0x0115, 0x80, 0x20},
      {"run, valid", ValidCcfg(kOpen), 0x0115, 0x80, 0xC0},
      {"shutdown", ValidCcfg(kOpen), 0x0108, 0x8F, 0x8F},
  };
  for (const auto& c : cases) {
    Hold(c.ccfg);
    EXPECT_EQ(target.Command({c.command}), (Words{c.command})) << c.what;
    EXPECT_EQ(target.BootStatus(), c.atOnce) << c.what;
    target.ports.Sleep(3);
    EXPECT_EQ(target.BootStatus(), c.later) << c.what;
    EXPECT_EQ(target.AhbEnabled(), c.later != 0x8F) << c.what;
  }
}

TEST_F(BootRomTest, ResetsAfterItsAcknowledgementWasRead) {
  Hold(ValidCcfg(kOpen));
  target.Send({0x0001'0114});
  target.ports.Sleep(100);
  EXPECT_EQ(target.BootStatus(), 0x20u);
  EXPECT_EQ(target.Answer(), (Words{0x0000'0114}));
  EXPECT_EQ(target.BootStatus(), 0x01u);
  target.ports.Sleep(6);
  EXPECT_EQ(target.BootStatus(), 0xC0u);

  target.EnterSaci();
  target.Send({0x0000'0214});  // asks for no acknowledgement
  EXPECT_EQ(target.BootStatus(), 0x01u);
  EXPECT_EQ(target.Answer(), Words{});
}

TEST_F(BootRomTest, ClosedDebuggingStaysClosed) {
  for (const std::uint8_t type : {kClosed, std::uint8_t{0xFF}, std::uint8_t{0x5B}}) {
    Hold(ValidCcfg(type));
    EXPECT_FALSE(target.AhbEnabled());
    EXPECT_EQ(target.Command({0x0000'0105}), (Words{0x0086'0105}));
    EXPECT_EQ(SubmitPassword(PasswordWords()), (Words{0x0086'0306}));
    EXPECT_EQ(target.Command({0x0000'0107}), (Words{0x0086'0107}));
    EXPECT_EQ(target.Command({0x0000'0115}), (Words{0x0000'0115}));
    target.ports.Sleep(3);
    EXPECT_EQ(target.BootStatus(), 0xC0u);
    EXPECT_FALSE(target.AhbEnabled());
  }
}

TEST_F(BootRomTest, TheRightPasswordOpensTheAhbApWhenSaciIsLeft) {
  Hold(ValidCcfg(kPassword));
  EXPECT_EQ(target.Command({0x0000'0105}), (Words{0x0200'0105, 0x89AB'CDEF, 0x0123'4567}));
  EXPECT_EQ(SubmitPassword(PasswordWords()), (Words{0x0000'0306}));
  EXPECT_FALSE(target.AhbEnabled());
  EXPECT_EQ(target.Command({0x0000'0107}), (Words{0x0000'0107}));
  EXPECT_TRUE(target.AhbEnabled());
  target.ports.PinReset();
  target.ports.Sleep(6);
  EXPECT_FALSE(target.AhbEnabled()) << "authorized until the next reset";
}

TEST_F(BootRomTest, AWrongPasswordKeepsTheAhbApClosed) {
  Words tooLong = PasswordWords();
  tooLong.push_back(0);
  Words wrong = PasswordWords();
  wrong[2] ^= 0x0100'0000;
  for (const Words& password : {wrong, tooLong, Words{PasswordWords()[0]}}) {
    Hold(ValidCcfg(kPassword));
    EXPECT_EQ(SubmitPassword(password), (Words{0x0088'0306}));
    EXPECT_EQ(target.Command({0x0000'0107}), (Words{0x0086'0107}));
    EXPECT_EQ(target.Command({0x0000'0115}), (Words{0x0000'0115}));
    EXPECT_FALSE(target.AhbEnabled());
  }
}

TEST_F(BootRomTest, ANewCcfgCountsFromTheNextReset) {
  Hold(ValidCcfg(kPassword));
  target.Command({0x0000'0109, kKey});
  EXPECT_EQ(target.Command({0x0000'0205}), (Words{0x0200'0205, 0x89AB'CDEF, 0x0123'4567}));
  EXPECT_EQ(SubmitPassword(PasswordWords()), (Words{0x0000'0306})) << "against the hash of the last boot";
  target.EnterSaci();
  EXPECT_TRUE(target.AhbEnabled());
  target.Command(Joined({0x0000'010C, kKey}, AsWords(ValidCcfg(kClosed))));
  EXPECT_TRUE(target.AhbEnabled());
  target.EnterSaci();
  EXPECT_FALSE(target.AhbEnabled());
}

TEST_F(BootRomTest, TheAhbApReachesAllMemoriesButWritesOnlyRam) {
  Hold(ValidCcfg(kOpen));
  Bytes bytes = {1, 2, 3, 4, 5};
  target.ports.WriteMemory(0x2000'0003, bytes);
  Bytes back(5);
  target.ports.ReadMemory(0x2000'0003, back);
  EXPECT_EQ(back, bytes);
  EXPECT_EQ(target.Contents().ram[3], 1);
  for (const std::uint32_t address : {0x0000'4AFBu, 0x4C00'00FBu, 0x4C00'103Bu, 0x4C00'081Bu}) {
    EXPECT_EQ(ErrorOf([&] { target.ports.ReadMemory(address, back); }), "ok") << address;
    EXPECT_NE(ErrorOf([&] { target.ports.ReadMemory(address + 1, back); }), "ok") << address;
    EXPECT_NE(ErrorOf([&] { target.ports.WriteMemory(address, bytes); }), "ok") << address;
  }
  EXPECT_EQ(ErrorOf([&] { target.ports.WriteMemory(0x2000'00FC, bytes); }),
            "Bus error: writing 5 bytes at 0x200000FC");
  EXPECT_EQ(ErrorOf([&] { target.ports.ReadMemory(0xFFFF'FFFE, back); }),
            "Bus error: reading 5 bytes at 0xFFFFFFFE");
}

TEST_F(BootRomTest, AClosedAhbApReachesNothingUntilItOpens) {
  Hold(ValidCcfg(kPassword));
  Bytes byte(1);
  const char* closed = "The AHB access port is not enabled";
  EXPECT_EQ(ErrorOf([&] { target.ports.ReadMemory(0x2000'0000, byte); }), closed);
  EXPECT_EQ(ErrorOf([&] { target.ports.WriteMemory(0x2000'0000, byte); }), closed);
  SubmitPassword(PasswordWords());
  target.Send({0x0000'0107});
  target.ports.Sleep(1);
  EXPECT_EQ(ErrorOf([&] { target.ports.ReadMemory(0x2000'0000, byte); }), "ok");
}

TEST_F(BootRomTest, RamOutlivesAResetButNoPowerCycle) {
  const Bytes bytes = {9};
  target.ports.WriteMemory(0x2000'0000, bytes);
  target.ports.PinReset();
  EXPECT_EQ(target.Contents().ram[0], 9);
  target.chip.PowerCycle();
  EXPECT_EQ(target.Contents().ram[0], 0);
}

}  // namespace
}  // namespace simulator
