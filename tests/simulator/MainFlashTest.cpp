#include <gtest/gtest.h>

#include "TestChip.h"
#include "tests/support/ErrorOf.h"

namespace simulator {
namespace {

struct MainFlashTest : testing::Test {
  [[nodiscard]] std::uint32_t MainWord(std::size_t index) const {
    return AsWords(target.chip.State().main)[index];
  }
  TestChip target;
};

TEST_F(MainFlashTest, ProgramsTheStatedBytesAtTheAddress) {
  const Bytes before = target.Contents().main;
  EXPECT_EQ(target.Command({0x0006'010E, kKey, 0x44, 0x4433'2211, 0x8877'6655}), (Words{0x0000'010E}));
  Bytes expected = before;
  for (unsigned i = 0; i < 6; ++i) expected[0x44 + i] = static_cast<std::uint8_t>(0x11 * (i + 1));
  EXPECT_EQ(target.Contents().main, expected);
}

TEST_F(MainFlashTest, ProgrammingOnlyClearsBitsUntilAnErase) {
  target.Command({0x0004'010E, kKey, 0, 0xFF00'F0F0});
  EXPECT_EQ(target.Command({0x0004'020E, kKey, 0, 0x0FFF'FF00}), (Words{0x0000'020E}));
  EXPECT_EQ(MainWord(0), 0x0F00'F000u);
  target.Command({0x0000'0309, kKey});
  EXPECT_EQ(MainWord(0), 0xFFFF'FFFFu);
}

TEST_F(MainFlashTest, VerifiesByCrcAndSeesOneBit) {
  // CRC-32 of 64 bytes of 0xFF, from an independent tool.
  EXPECT_EQ(target.Command({0x0000'0110, 64, 64, 0x0F61'87BA}), (Words{0x0000'0110}));
  target.Command({0x0004'020E, kKey, 124, 0x7FFF'FFFF});
  EXPECT_EQ(target.Command({0x0000'0310, 64, 64, 0x0F61'87BA}), (Words{0x0087'0310}));
  EXPECT_EQ(target.Command({0x0000'0410, 128, 64, 0x0F61'87BA}), (Words{0x0000'0410}));
}

TEST_F(MainFlashTest, BlankCheckSeesOneZeroBitAndIgnoresTheCrc) {
  EXPECT_EQ(target.Command({0x8000'0110, 0, 300 * 64, 0}), (Words{0x0000'0110}));
  target.Command({0x0004'020E, kKey, 300 * 64 - 4, 0xBFFF'FFFF});
  EXPECT_EQ(target.Command({0x8000'0310, 0, 300 * 64, 0}), (Words{0x0089'0310}));
  EXPECT_EQ(target.Command({0x8000'0410, 0, 299 * 64, 0}), (Words{0x0000'0410}));
}

TEST_F(MainFlashTest, CountsWhatHappensToEachSector) {
  target.Command({0x0004'010E, kKey, 64, 0});
  target.Command({0x0000'0209, kKey});
  const auto wear = target.chip.MainWear();
  ASSERT_EQ(wear.size(), 300u);
  EXPECT_EQ(wear[0].programs, 0u);
  EXPECT_EQ(wear[1].programs, 1u);
  EXPECT_EQ(wear[299].erases, 1u);
}

TEST_F(MainFlashTest, AnUnprogrammableCellStaysErased) {
  target.chip.AskedFaults().Add("cell:0x41");
  target.Command({0x0004'010E, kKey, 0x40, 0x0000'0000});
  EXPECT_EQ(MainWord(0x10), 0x0000'FF00u);
}

TEST_F(MainFlashTest, PowerCutKeepsTheWordsWrittenAndKillsTheChipUntilThePowerComesBack) {
  target.chip.AskedFaults().Add("power:after=2");
  const auto program = [&] { target.Command({0x000C'010E, kKey, 0, 1, 2, 3}); };
  EXPECT_EQ(ErrorOf(program), "The chip lost power");
  const char* dead = "The chip does not answer: it has no power";
  EXPECT_EQ(ErrorOf([&] { target.BootStatus(); }), dead);
  EXPECT_EQ(ErrorOf([&] { target.ports.PinReset(); }), dead);
  EXPECT_EQ(MainWord(0), 1u);
  EXPECT_EQ(MainWord(1), 2u);
  EXPECT_EQ(MainWord(2), 0xFFFF'FFFFu);
  target.chip.PowerCycle();
  target.EnterSaci();
  EXPECT_EQ(target.Command({0x0008'020E, kKey, 0, 1, 2}), (Words{0x0000'020E}));
}

TEST_F(MainFlashTest, APartOfAWordCountsAsAWordWritten) {
  target.chip.AskedFaults().Add("power:after=1");
  EXPECT_EQ(ErrorOf([&] { target.Command({0x0002'010E, kKey, 0, 0}); }), "The chip lost power");
  EXPECT_EQ(MainWord(0), 0xFFFF'0000u);
}

}  // namespace
}  // namespace simulator
