#include <gtest/gtest.h>

#include "TestChip.h"

namespace simulator {
namespace {

constexpr std::uint32_t kEnd = 300 * 64;  // of MAIN

Words Filled(Words head, std::size_t total) {
  head.resize(total, 0xA5A5'A5A5);
  return head;
}

// Each row is one command and the one word of its answer: result in bits 23-16.
TEST(RefusalTest, NamesTheFaultAndChangesNothing) {
  const std::uint32_t badKey = kKey ^ 1;
  const struct {
    const char* what;
    Words command;
    std::uint32_t answer;
  } cases[] = {
      {"id 0", {0x0000'0100}, 0x0080'0100},
      {"ids with a size but no meaning: 18", {0x0000'0112}, 0x0080'0112},
      {"19", {0x0000'0113}, 0x0080'0113},
      {"22", {0x0000'0116}, 0x0080'0116},
      {"erase, key", {0x0000'0109, badKey}, 0x0083'0109},
      {"erase, configuration kept, key", {0x0000'011C, badKey}, 0x0083'011C},
      {"CCFG, key", Filled({0x0000'010C, badKey}, 2 + 0x40), 0x0083'010C},
      {"user record, key", Filled({0x0000'010D, badKey}, 2 + 8), 0x0083'010D},
      {"SCFG, key", Filled({0x0040'011A, badKey}, 2 + 16), 0x0083'011A},
      {"SCFG, no bytes", Filled({0x0000'011A, kKey}, 2 + 16), 0x0082'011A},
      {"SCFG, a byte too many", Filled({0x0041'011A, kKey}, 2 + 16), 0x0082'011A},
      {"OTP, key", Filled({0x0020'0119, badKey}, 514), 0x0083'0119},
      {"OTP, no bytes", Filled({0x0000'0119, kKey}, 514), 0x0082'0119},
      {"OTP, a byte too many", Filled({0x0021'0119, kKey}, 514), 0x0082'0119},
      {"MAIN sector, key", {0x0004'010E, badKey, 0, 0}, 0x0083'010E},
      {"MAIN sector, odd address", {0x0004'010E, kKey, 2, 0}, 0x0081'010E},
      {"MAIN sector, behind MAIN", {0x0004'010E, kKey, kEnd, 0}, 0x0081'010E},
      {"MAIN sector, CCFG's address", {0x0004'010E, kKey, 0x4C00'0000, 0}, 0x0081'010E},
      {"MAIN sector, no bytes", {0x0000'010E, kKey, 0}, 0x0082'010E},
      {"MAIN sector, a byte too many", Filled({0x0041'010E, kKey, 0}, 3 + 17), 0x0082'010E},
      {"MAIN sector, into the next", {0x0008'010E, kKey, 60, 0, 0}, 0x0082'010E},
      {"pipelined, key", {0x0000'010F, badKey, 0}, 0x0083'010F},
      {"pipelined, within a sector", {0x0000'010F, kKey, 4}, 0x0081'010F},
      {"pipelined, behind MAIN", {0x0000'010F, kKey, kEnd}, 0x0081'010F},
      {"verify, within a sector", {0x0000'0110, 4, 64, 0}, 0x0081'0110},
      {"verify, behind MAIN", {0x0000'0110, kEnd, 64, 0}, 0x0081'0110},
      {"verify, nothing", {0x0000'0110, 0, 0, 0}, 0x0082'0110},
      {"verify, half a sector", {0x0000'0110, 0, 32, 0}, 0x0082'0110},
      {"verify, past the end", {0x0000'0110, kEnd - 64, 128, 0}, 0x0082'0110},
      {"verify, length that wraps round", {0x0000'0110, 64, 0xFFFF'FFC0, 0}, 0x0082'0110},
      {"verify, wrong CRC", {0x0000'0110, 0, 64, 0x1234'5678}, 0x0087'0110},
      {"password, no words", {0x0000'0106}, 0x0082'0106},
      {"password, longer than the buffer", Filled({0x0011'0106}, 17), 0x0085'0106},
      {"password where debugging is open", {0x0001'0106, 1}, 0x0086'0106},
      {"HSM image of 4 words", {0x0000'0121, 4}, 0x0082'0121},
      {"HSM image above 256 KiB", {0x0000'0121, 0x1'0001}, 0x0082'0121},
  };
  TestChip target;
  const ChipState before = target.Contents();
  for (const auto& c : cases) {
    EXPECT_EQ(target.Command(c.command), (Words{c.answer})) << c.what;
    EXPECT_EQ(target.Contents(), before) << c.what;
    EXPECT_EQ(target.Command({0x0000'0201}), (Words{0x0000'0201})) << "after " << c.what;
  }
}

TEST(RefusalTest, CommandsForWhatTheChipHasNotAreUnknown) {
  ChipDescription plain = SmallChip();
  plain.scfgSize = plain.otpSize = 0;
  plain.hsm = HsmKind::None;
  TestChip target(plain);
  for (const std::uint32_t id : {25u, 26u, 27u, 33u, 34u, 35u})
    EXPECT_EQ(target.Command({0x0004'0100 | id}), (Words{0x0080'0100 | id})) << id;
}

TEST(RefusalTest, OtherLifeCycleStatesStayInSaci) {
  TestChip target;
  for (const unsigned state : {0u, 1u, 2u, 6u, 7u}) {
    target.chip.SetLifeCycle(static_cast<std::uint8_t>(state));
    EXPECT_EQ(target.Read("CFGAP_DEVICESTATUS") & 0xFF, state);
    for (const std::uint32_t id : {7u, 8u, 21u})
      EXPECT_EQ(target.Command({0x0000'0100 | id}), (Words{0x0086'0100 | id})) << state;
    EXPECT_EQ(target.BootStatus(), 0x20u);
  }
}

}  // namespace
}  // namespace simulator
