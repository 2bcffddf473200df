#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Workbench.h"

// Images loaded into the simulated chip through the built library and the reference host, for every device
// description, erase setting and sector option, and compared with the chip byte for byte; then loads that
// only compare.

namespace {

using State = simulator::ChipState;

struct SectorOption {
  const char* listed;  // sectors to leave out
  const char* filled;  // those to leave out that hold nothing but this
};
const SectorOption s_options[] = {{"", ""}, {" 0, 30 -31,250-255 ", ""}, {"", "0xEE"}, {"4,40", "0xee"}};

void CheckLoad(const std::string& device, const Erase& erase, const SectorOption& option) {
  Workbench bench(device);
  if (!bench.SetErase(erase)) return;
  const bool listsSectors = *option.listed != '\0';
  bench.Set("FlashPageToggle", listsSectors ? "1" : "0");
  bench.Set("FlashPages", option.listed);
  bench.Set("FlashPagesFilledWith", *option.filled != '\0' ? "1" : "0");
  bench.Set("FlashPagesFilledWithValue", option.filled);
  bench.Set("FlashVerboseMode", "1");
  const host::ChipFacts& chip = bench.device.chip;
  const Segments image = CheckImage(chip, 100).All();
  const host::LoadPlan plan = bench.Plan(image);
  bench.Prepare([&](State& state) { state = host::ChipBeforeLoad(state, plan, chip, bench.settings); });
  const State before = bench.State();

  const host::LoadRecord report = bench.Load(image);
  ASSERT_EQ(Outcome(report), "ok");
  EXPECT_THAT(Errors(report), testing::IsEmpty());
  EXPECT_TRUE(bench.services.IsConnected(host::Core::Cortex));
  EXPECT_FALSE(bench.services.IsConnected(host::Core::SecureAp));
  EXPECT_EQ(Difference(bench.State(), host::ChipAfterLoad(before, plan, bench.device, bench.settings)), "");

  const std::pair<const char*, bool> infos[] = {
      {"Performing Chip Erase", erase.erases},
      {"Chip Erase: Retained the following sector(s): 1, 31, 40-47, ", erase.keepsMain},
      {"Skipping programming the following sector(s): ", listsSectors || erase.keepsMain},
      {"The CCFG sector has not been erased. Writing to CCFG could fail.", !erase.erases},
      {"The SCFG sector has not been erased. Writing to SCFG could fail.", !erase.erases},
      // The one word covers all three: an erase that keeps CCFG and SCFG does not count.
      {"Chip has not been erased. Writing to OTP could fail.",
       chip.otp.size != 0 && (!erase.erases || erase.keepsConfiguration)}};
  for (const auto& [text, isTold] : infos)
    EXPECT_THAT(Infos(report), testing::Contains(testing::HasSubstr(text)).Times(isTold ? 1U : 0U));
}

class WholeLoadTest : public testing::TestWithParam<std::string> {};

TEST_P(WholeLoadTest, PutsEveryByteWhereItBelongsAndTellsWhatItLeaves) {
  for (const Erase& erase : {kNoErase, kChipErase, kRetainMain, kRetainAll, kRetainConfiguration})
    for (const SectorOption& option : s_options) {
      SCOPED_TRACE(std::string(erase.name) + ", without \"" + option.listed + "\", " + option.filled);
      CheckLoad(GetParam(), erase, option);
    }
}

TEST_P(WholeLoadTest, ComparisonFindsOneBitInEveryRegionAndChangesNothing) {
  Workbench bench(GetParam());
  const Segments image = CheckImage(bench.device.chip, 800).All();
  EXPECT_EQ(Outcome(bench.Load(image)), "ok");
  const State loaded = bench.State();

  const host::ChipFacts& chip = bench.device.chip;
  const struct {
    const char* what;
    Bytes State::*region;
    std::size_t offset;
    const char* differs;  // that the outcome names; nothing when it is "ok"
    const char* skipped = "";
  } cases[] = {
      {"first byte of MAIN", &State::main, 0, "flash"},
      {"first byte of MAIN, in a sector to be skipped", &State::main, 0, "", "0"},
      {"boot configuration", &State::ccfg, chip.bootCrc.offset, "CCFG"},
      {"CCFG", &State::ccfg, chip.ccfgCrc.offset + chip.ccfgCrc.length - 1, "CCFG"},
      {"debug configuration", &State::ccfg, chip.debugCrc.offset + chip.debugCrc.length - 1, "CCFG"},
      {"user record, which is left out", &State::ccfg, chip.userRecord.offset, ""},
      {"SCFG", &State::scfg, chip.scfgCrc.offset + chip.scfgCrc.length - 1, "SCFG"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    State changed = loaded;
    (changed.*c.region)[c.offset] ^= 0x10;
    if (chip.otp.size != 0) changed.otp[12] = 0;  // not compared either
    bench.Prepare([&](State& state) { state = changed; });
    bench.Set("FlashPageToggle", *c.skipped == '\0' ? "0" : "1");
    bench.Set("FlashPages", c.skipped);
    const host::LoadRecord report = bench.Verify(image);
    const bool isEqual = *c.differs == '\0';
    EXPECT_EQ(Outcome(report), isEqual ? "ok"
                                       : std::string("Error when verifying ") + c.differs +
                                             " - Calculated CRC32 does not match expected CRC32");
    EXPECT_THAT(Infos(report), testing::Contains("Image Verification Succeeded!").Times(isEqual ? 1U : 0U));
    EXPECT_EQ(Difference(bench.State(), changed), "");
  }
}

INSTANTIATE_TEST_SUITE_P(AllDevices, WholeLoadTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

}  // namespace
