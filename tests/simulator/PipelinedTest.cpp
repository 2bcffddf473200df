#include <gtest/gtest.h>

#include "TestChip.h"

namespace simulator {
namespace {

struct PipelinedTest : testing::Test {
  static Words Sector(std::uint32_t fill) { return Words(16, fill); }
  static CostModel SlowFlash(Nanoseconds programSector) {
    CostModel costs;
    costs.programSector = programSector;
    return costs;
  }
};

TEST_F(PipelinedTest, AcknowledgesEachSectorWithTheNextNumber) {
  TestChip target;
  target.Send({0x0000'FE0F, kKey, 0x80});
  EXPECT_EQ(target.Answer(), Words{});  // the header itself is not answered
  for (const std::uint32_t sequence : {0xFEu, 0xFFu, 0x00u, 0x01u}) {
    target.ports.WriteTxWords(Sector(sequence));
    EXPECT_EQ(target.Answer(), (Words{0x0F | sequence << 8}));
  }
  const Words main = AsWords(target.Contents().main);
  EXPECT_EQ(main[0x80 / 4 - 1], 0xFFFF'FFFFu);
  EXPECT_EQ(main[0x80 / 4], 0xFEu);
  EXPECT_EQ(main[0x80 / 4 + 63], 0x01u);
  EXPECT_EQ(main[0x80 / 4 + 64], 0xFFFF'FFFFu);
}

TEST_F(PipelinedTest, ReceivesOneSectorWhileItProgramsTheOneBefore) {
  const Nanoseconds program = 1 * kMillisecond;
  TestChip target(SmallChip(), SlowFlash(program));
  target.Send({0x0000'010F, kKey, 0});
  target.ports.WriteTxWords(Sector(1));
  const Nanoseconds firstThere = target.Now();
  target.ports.WriteTxWords(Sector(2));
  EXPECT_LT(target.Now(), firstThere + program) << "the second arrives during the first's programming";
  const auto readyAt = [&](Nanoseconds from) {
    const Nanoseconds after = target.AwaitReady() - from;
    target.chip.ReadRegister(Register::SecApRxData);
    return static_cast<double>(after);
  };
  // Back to back: the flash never waits for the wire.
  EXPECT_NEAR(readyAt(firstThere), static_cast<double>(program), 10);
  EXPECT_NEAR(readyAt(firstThere), static_cast<double>(2 * program), 20);
}

TEST_F(PipelinedTest, AThirdSectorBeforeTheFirstIsProgrammedOverruns) {
  TestChip target(SmallChip(), SlowFlash(10 * kMillisecond));
  target.Send({0x0000'050F, kKey, 0});
  for (const std::uint32_t fill : {1u, 2u, 3u}) target.ports.WriteTxWords(Sector(fill));
  EXPECT_EQ(target.Answer(), (Words{0x0000'050F}));
  EXPECT_EQ(target.Answer(), (Words{0x0000'060F}));
  EXPECT_EQ(target.Answer(), (Words{0x0085'070F}));
  EXPECT_EQ(AsWords(target.Contents().main)[32], 0xFFFF'FFFFu);
  EXPECT_EQ(target.Command({0x0000'0601}), (Words{0x0000'0601}));
}

TEST_F(PipelinedTest, EndsAtTheNextHeaderAndDropsAHalfSector) {
  TestChip target;
  target.Send({0x0000'010F, kKey, 0});
  target.ports.WriteTxWords(Words(8, 0));
  target.Send({0x0000'020F, kKey, 64});
  target.ports.WriteTxWords(Sector(9));
  EXPECT_EQ(target.Answer(), (Words{0x0000'020F}));
  EXPECT_EQ(target.Command({0x8000'0310, 0, 64, 0}), (Words{0x0000'0310}));
  EXPECT_EQ(AsWords(target.Contents().main)[16 + 15], 9u);
  target.Write("SECAP_TXCTL", 0);
  target.ports.WriteTxWords(Words{0x0000'0801});  // no longer part of a stream
  EXPECT_EQ(target.Answer(), (Words{0x0080'0801}));
}

TEST_F(PipelinedTest, TheNextCommandWaitsForTheFlashUnlessAResetEndsIt) {
  TestChip target(SmallChip(), SlowFlash(50 * kMillisecond));
  for (const bool reset : {false, true}) {
    target.Send({0x0000'010F, kKey, 0});
    target.ports.WriteTxWords(Sector(0));
    const Nanoseconds start = target.Now();
    if (reset) target.EnterSaci();
    target.Send({0x8000'0210, 64, 64, 0});
    if (!reset) {
      EXPECT_EQ(target.Answer(), (Words{0x0000'010F}));
    }
    EXPECT_EQ(target.AwaitReady() - start > 50 * kMillisecond, !reset);
    EXPECT_EQ(target.Answer(), (Words{0x0000'0210}));
  }
}

TEST_F(PipelinedTest, ParametersReceivedWhileTheFlashIsBusyAreKept) {
  TestChip target(SmallChip(), SlowFlash(50 * kMillisecond));
  target.Send({0x0000'010F, kKey, 0});
  target.ports.WriteTxWords(Sector(0));
  const Nanoseconds start = target.Now();
  target.Send({0x0004'020E, kKey, 64, 0x1234'5678});
  target.chip.Clock().Advance(start + 49 * kMillisecond - target.Now());
  EXPECT_EQ(target.Read("SECAP_RXCTL"), 4u);
  EXPECT_EQ(AsWords(target.Contents().main)[16], 0xFFFF'FFFFu) << "one flash, one job at a time";
  target.ports.Sleep(2);
  EXPECT_EQ(AsWords(target.Contents().main)[0], 0u);
  EXPECT_EQ(target.Answer(), (Words{0x0000'010F}));
  EXPECT_EQ(target.Answer(), (Words{0x0000'020E}));
  EXPECT_EQ(AsWords(target.Contents().main)[16], 0x1234'5678u);
}

TEST_F(PipelinedTest, TheSectorBehindMainIsRefused) {
  TestChip target;
  target.Send({0x0000'010F, kKey, 299 * 64});
  target.ports.WriteTxWords(Sector(7));
  EXPECT_EQ(target.Answer(), (Words{0x0000'010F}));
  target.ports.WriteTxWords(Sector(7));
  EXPECT_EQ(target.Answer(), (Words{0x0081'020F}));
}

}  // namespace
}  // namespace simulator
