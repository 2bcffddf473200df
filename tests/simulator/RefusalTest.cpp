#include <gtest/gtest.h>

#include <string>

#include "Transcript.h"

namespace simulator {
namespace {

// One command and the one word of its answer: result in bits 23-16. MAIN ends at 4B00.
TEST(RefusalTest, NamesTheFaultAndChangesNothing) {
  const Transcript refusals[] = {
      {"id 0", "100 -> 800100"},
      {"ids with a size but no meaning: 18", "112 -> 800112"},
      {"19", "113 -> 800113"},
      {"22", "116 -> 800116"},
      {"erase, key", "109 NOKEY -> 830109"},
      {"erase, configuration kept, key", "11C NOKEY -> 83011C"},
      {"CCFG, key", "10C NOKEY 64*A5 -> 83010C"},
      {"user record, key", "10D NOKEY 8*A5 -> 83010D"},
      {"SCFG, key", "40011A NOKEY 16*A5 -> 83011A"},
      {"SCFG, no bytes", "11A KEY 16*A5 -> 82011A"},
      {"SCFG, a byte too many", "41011A KEY 16*A5 -> 82011A"},
      {"OTP, key", "200119 NOKEY 512*A5 -> 830119"},
      {"OTP, no bytes", "119 KEY 512*A5 -> 820119"},
      {"OTP, a byte too many", "210119 KEY 512*A5 -> 820119"},
      {"MAIN sector, key", "4010E NOKEY 0 0 -> 83010E"},
      {"MAIN sector, odd address", "4010E KEY 2 0 -> 81010E"},
      {"MAIN sector, behind MAIN", "4010E KEY 4B00 0 -> 81010E"},
      {"MAIN sector, CCFG's address", "4010E KEY 4C000000 0 -> 81010E"},
      {"MAIN sector, no bytes", "10E KEY 0 -> 82010E"},
      {"MAIN sector, a byte too many", "41010E KEY 0 17*A5 -> 82010E"},
      {"MAIN sector, into the next", "8010E KEY 3C 0 0 -> 82010E"},
      {"pipelined, key", "10F NOKEY 0 -> 83010F"},
      {"pipelined, within a sector", "10F KEY 4 -> 81010F"},
      {"pipelined, behind MAIN", "10F KEY 4B00 -> 81010F"},
      {"verify, within a sector", "110 4 40 0 -> 810110"},
      {"verify, behind MAIN", "110 4B00 40 0 -> 810110"},
      {"verify, nothing", "110 0 0 0 -> 820110"},
      {"verify, half a sector", "110 0 20 0 -> 820110"},
      {"verify, past the end", "110 4AC0 80 0 -> 820110"},
      {"verify, length that wraps round", "110 40 FFFFFFC0 0 -> 820110"},
      {"verify, wrong CRC", "110 0 40 12345678 -> 870110"},
      {"password, no words", "106 -> 820106"},
      {"password, longer than the buffer", "110106 17*A5 -> 850106"},
      {"password where debugging is open", "10106 1 -> 860106"},
      {"HSM image of 4 words", "121 4 -> 820121"},
      {"HSM image above 256 KiB", "121 10001 -> 820121"},
      {"a word without start flag", "set TXCTL 0; raw 501; answer 800501"},
      {"erase, a word too many", "109 KEY 0 -> 850109"},
      {"MAIN sector, a word too many", "4010E KEY 4 12345678 0 -> 85010E"},
  };
  TestChip target;
  for (const Transcript& refusal : refusals) {
    const std::string steps = std::string(refusal.steps) + "; unchanged; 201 -> 201";
    Play(target, {refusal.about, steps.c_str()});
  }
}

TEST(RefusalTest, CommandsForWhatTheChipHasNotAreUnknown) {
  ChipDescription plain = SmallChip();
  plain.scfgSize = plain.otpSize = 0;
  plain.hsm = HsmKind::None;
  TestChip target(plain);
  Play(target, {"no SCFG, OTP, HSM", R"(
      40119 -> 800119; 4011A -> 80011A; 4011B -> 80011B; 121 -> 800121; 122 -> 800122; 123 -> 800123)"});
}

TEST(RefusalTest, TheLifeCycleDecidesWhoLeavesSaci) {
  for (const unsigned state : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u}) {
    TestChip target;
    target.chip.SetLifeCycle(static_cast<std::uint8_t>(state));
    EXPECT_EQ(target.Read("CFGAP_DEVICESTATUS") & 0xFF, state);
    const bool leaves = state >= 3 && state <= 5;
    Play(target,
         {"exits", leaves ? "107 -> 107; boot 80" : "107 -> 860107; 108 -> 860108; 115 -> 860115; boot 20"});
  }
}

}  // namespace
}  // namespace simulator
