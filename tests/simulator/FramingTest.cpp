#include <gtest/gtest.h>

#include "TestChip.h"

namespace simulator {
namespace {

constexpr std::uint32_t kReady = 1;
constexpr std::uint32_t kWorking = 4;

struct FramingTest : testing::Test {
  void WriteWord(std::uint32_t word) { target.ports.WriteTxWords({&word, 1}); }
  TestChip target;
};

TEST_F(FramingTest, AWordWithoutStartFlagIsNoCommand) {
  target.Write("SECAP_TXCTL", 0);
  WriteWord(0x0000'0501);
  EXPECT_EQ(target.Answer(), (Words{0x0080'0501}));
  WriteWord(0x0000'0601);  // dropped until a command begins
  EXPECT_EQ(target.Answer(), Words{});
  EXPECT_EQ(target.Command({0x0000'0701}), (Words{0x0000'0701}));
}

TEST_F(FramingTest, ParametersWithTheStartFlagAreTakenForCommands) {
  target.Write("SECAP_TXCTL", 2);
  WriteWord(0x0000'0109);  // chip erase, whose key follows with the flag still set
  WriteWord(kKey);
  EXPECT_EQ(target.Answer(), (Words{0x0080'E94B}));
}

TEST_F(FramingTest, AWordTooManyOverflowsTheCommandWhichIsNotCarriedOut) {
  target.Command({0x0004'010E, kKey, 0, 0x1234'5678});
  const ChipState before = target.Contents();
  EXPECT_EQ(target.Command({0x0000'0209, kKey, 0}), (Words{0x0085'0209}));
  EXPECT_EQ(target.Command({0x0004'030E, kKey, 4, 0x1234'5678, 0}), (Words{0x0085'030E}));
  EXPECT_EQ(target.Contents(), before);
}

TEST_F(FramingTest, ANewHeaderEndsAHalfReceivedCommand) {
  target.Send({0x0000'0109});  // the key never comes
  EXPECT_EQ(target.Answer(), Words{});
  EXPECT_EQ(target.Command({0x0000'0201}), (Words{0x0000'0201}));
}

TEST_F(FramingTest, FlagsFollowTheCommandThroughVirtualTime) {
  Chip& chip = target.chip;
  const auto flags = [&] { return chip.ReadRegister(Register::SecApRxCtl); };
  chip.WriteRegister(Register::SecApTxCtl, 2);
  chip.WriteRegister(Register::SecApTxData, 0x0000'0109);
  chip.WriteRegister(Register::SecApTxCtl, 0);
  chip.WriteRegister(Register::SecApTxData, kKey);
  EXPECT_EQ(flags(), kWorking);
  // 20 us until the command is carried out, 40 ms of erasing: one nanosecond less is not done.
  chip.Clock().Advance(20 * kMicrosecond + 40 * kMillisecond - 1);
  EXPECT_EQ(flags(), kWorking);
  EXPECT_EQ(chip.ReadRegister(Register::SecApRxData), 0u);
  chip.Clock().Advance(1);
  EXPECT_EQ(flags(), kReady);
  EXPECT_EQ(chip.ReadRegister(Register::SecApRxData), 0x0000'0109u);
  EXPECT_EQ(flags(), 0u);
}

TEST_F(FramingTest, AWordThatTheBusyRomHasNotTakenKeepsTheTxRegisterFull) {
  Chip& chip = target.chip;
  target.Send({0x0000'0109, kKey});
  chip.Clock().Advance(kMillisecond);
  chip.WriteRegister(Register::SecApTxCtl, 2);
  EXPECT_EQ(chip.ReadRegister(Register::SecApTxCtl), 2u);
  chip.WriteRegister(Register::SecApTxData, 0x0000'0201);
  EXPECT_EQ(chip.ReadRegister(Register::SecApTxCtl), 3u);
  EXPECT_EQ(target.Answer(), (Words{0x0000'0109}));
  EXPECT_EQ(target.Answer(), (Words{0x0000'0201}));
  EXPECT_EQ(chip.ReadRegister(Register::SecApTxCtl), 2u);
}

TEST_F(FramingTest, AWordThatMeetsTheTxRegisterFullOverflowsTheWaitingCommand) {
  target.Send({0x0000'0109, kKey});
  target.chip.Clock().Advance(kMillisecond);
  target.Send({0x0000'0209, kKey});
  EXPECT_EQ(target.Answer(), (Words{0x0000'0109}));
  EXPECT_EQ(target.Answer(), (Words{0x0085'0209}));
  EXPECT_EQ(target.Command({0x0000'0301}), (Words{0x0000'0301}));
}

TEST_F(FramingTest, EveryResetForgetsWordsAnswersAndFlags) {
  for (const bool byPin : {false, true}) {
    target.Send({0x0000'0201});
    target.ports.Sleep(1);
    EXPECT_EQ(target.Read("SECAP_RXCTL"), kReady);
    if (byPin) {
      target.ports.PinReset();
      target.ports.Sleep(6);  // a blank chip stops in SACI
    } else {
      target.EnterSaci();
    }
    for (const char* name : {"SECAP_RXCTL", "SECAP_TXCTL", "SECAP_RXDATA"}) EXPECT_EQ(target.Read(name), 0u);
    EXPECT_EQ(target.Answer(), Words{});
  }
}

TEST_F(FramingTest, AWordWrittenDuringTheBootIsTakenWhenSaciIsReached) {
  Chip& chip = target.chip;
  chip.WriteRegister(Register::SecApRstCtl, 0x5C);
  chip.WriteRegister(Register::SecApTxCtl, 2);
  chip.WriteRegister(Register::SecApTxData, 0x0000'0101);
  chip.Clock().Advance(5 * kMillisecond - 1);
  EXPECT_EQ(chip.ReadRegister(Register::SecApTxCtl), 3u);
  chip.Clock().Advance(1 + 20 * kMicrosecond);
  EXPECT_EQ(chip.ReadRegister(Register::SecApRxCtl), kReady);
}

TEST_F(FramingTest, OutsideSaciNobodyTakesTheWord) {
  target.Command({0x0000'0107});
  target.ports.Sleep(10);
  ASSERT_EQ(target.BootStatus(), 0x81u);
  target.Send({0x0000'0201});
  EXPECT_EQ(target.Read("SECAP_TXCTL"), 3u);
  EXPECT_EQ(target.Answer(), Words{});
}

}  // namespace
}  // namespace simulator
