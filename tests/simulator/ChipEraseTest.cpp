#include <gtest/gtest.h>

#include <algorithm>

#include "TestChip.h"

namespace simulator {
namespace {

// A chip whose memories are all zero but the CCFG, so that every erase shows.
ChipState Used(const Bytes& ccfg) {
  ChipState state = BlankState(SmallChip());
  for (Bytes* memory : {&state.main, &state.scfg, &state.otp}) memory->assign(memory->size(), 0);
  state.ccfg = ccfg;
  return state;
}

std::vector<unsigned> RetainedSectors(const ChipState& state) {
  std::vector<unsigned> retained;
  for (unsigned sector = 0; sector < 300; ++sector)
    if (state.main[sector * 64] == 0) retained.push_back(sector);
  return retained;
}

std::vector<unsigned> Range(unsigned first, unsigned last) {
  std::vector<unsigned> sectors;
  for (unsigned sector = first; sector <= last; ++sector) sectors.push_back(sector);
  return sectors;
}

TEST(ChipEraseTest, RetainsTheSectorsThatTheFieldMarks) {
  const struct {
    Words words;
    std::uint32_t shift;
    std::vector<unsigned> retained;
  } cases[] = {
      {{0x8000'0001, 0, 0}, 0, {0, 31}},
      {{0, 0x0000'0001, 0}, 0, Range(32, 39)},
      {{0, 0x0800'0000, 0}, 0, Range(248, 255)},
      {{0, 0xF000'0000, 0}, 0, {}},  // above the 28 groups
      {{0, 0x0000'0010, 0}, 4, Range(32, 39)},
      {{0, 0x8000'0000, 0}, 4, Range(248, 255)},
      {{0, 0x0000'000F, 0}, 4, {}},  // below the first group
      {{0, 0, 0x0000'0001}, 0, Range(256, 263)},
      {{0, 0, 0xFFFF'FFE0}, 0, Range(296, 299)},  // and what MAIN does not have
      {{0, 0x0000'0001}, 0, Range(32, 39)},
      {{0, 0, 1, 1, 1}, 0, {}},  // of five words only two count
  };
  for (const auto& c : cases) {
    ChipDescription chip = SmallChip();
    chip.retainGroupShift = c.shift;
    chip.chipEraseRetainWords = static_cast<std::uint32_t>(c.words.size());
    TestChip target(chip);
    target.Become(Used(ValidCcfg(kOpen, c.words)));
    const auto count = static_cast<std::uint32_t>(c.words.size());
    EXPECT_EQ(target.Command({0x0001'0109, kKey}), Joined({0x0000'0109 | count << 24}, c.words));
    EXPECT_EQ(RetainedSectors(target.Contents()), c.retained) << std::hex << c.words[0] << ' ' << c.words[1];
  }
}

TEST(ChipEraseTest, SectorsBeyondTheFieldAreNeverRetained) {
  ChipDescription chip = SmallChip();
  chip.mainSize = 600 * 64;
  TestChip target(chip);
  ChipState state = BlankState(chip);
  state.main.assign(state.main.size(), 0);
  state.ccfg = ValidCcfg(kOpen, {0, 0, 0xFFFF'FFFF});
  target.Become(state);
  target.Command({0x0001'0109, kKey});
  EXPECT_EQ(std::ranges::count(target.Contents().main, 0), 256 * 64);
  EXPECT_EQ(target.Contents().main[512 * 64], 0xFF);
}

TEST(ChipEraseTest, WithoutAValidCcfgNothingIsRetainedAndNoWordsCome) {
  Bytes broken = ValidCcfg(kOpen, {0xFFFF'FFFF, 0xFFFF'FFFF, 0xFFFF'FFFF});
  broken[0x0F] ^= 1;  // the boot configuration's CRC word
  for (const Bytes& ccfg : {broken, Bytes(0x100, 0xFF), Bytes(0x100, 0x00)}) {
    TestChip target;
    target.Become(Used(ccfg));
    EXPECT_EQ(target.Command({0x0001'011C, kKey}), (Words{0x0000'011C}));
    EXPECT_EQ(RetainedSectors(target.Contents()), Range(1, 0));
    EXPECT_EQ(target.Contents().ccfg, ccfg);
  }
}

}  // namespace
}  // namespace simulator
