#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestImage.h"

// Loads that only compare: nothing on the chip changes, and what differs is told.

namespace {

using State = simulator::ChipState;

class VerificationLoadTest : public testing::TestWithParam<std::string> {};

TEST_P(VerificationLoadTest, FindsOneBitInEveryComparedRegionAndChangesNothing) {
  Workbench bench(GetParam());
  const TestImage image = MakeImage(bench.device, 800);
  EXPECT_EQ(Outcome(bench.Load(image.Segments(bench.device))), "ok");
  const State loaded = bench.Chip().State();

  const char* const kMainError =
      "Error when verifying flash - Calculated CRC32 does not match expected CRC32";
  const char* const kCcfgError = "Error when verifying CCFG - Calculated CRC32 does not match expected CRC32";
  const char* const kScfgError = "Error when verifying SCFG - Calculated CRC32 does not match expected CRC32";
  const host::ChipFacts& chip = bench.device.chip;
  const struct {
    const char* what;
    Bytes State::*region;
    std::size_t offset;
    const char* outcome;
    const char* skipped = "";
  } cases[] = {
      {"first byte of MAIN", &State::main, 0, kMainError},
      {"first byte of MAIN, in a sector to be skipped", &State::main, 0, "ok", "0"},
      {"fill byte beside a piece", &State::main, 3 * 2048 + 99, kMainError},
      {"a sector that the image does not touch", &State::main, 20 * 2048, "ok"},
      {"boot configuration", &State::ccfg, chip.bootCrc.offset, kCcfgError},
      {"CCFG", &State::ccfg, chip.ccfgCrc.offset + chip.ccfgCrc.length - 1, kCcfgError},
      {"debug configuration", &State::ccfg, chip.debugCrc.offset + chip.debugCrc.length - 1, kCcfgError},
      {"user record, which is left out", &State::ccfg, chip.userRecord.offset, "ok"},
      {"SCFG", &State::scfg, chip.scfgCrc.offset + chip.scfgCrc.length - 1, kScfgError},
      {"RAM, which is not compared", &State::ram, 0, "ok"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    State changed = loaded;
    (changed.*c.region)[c.offset] ^= 0x10;
    if (chip.otp.size != 0) changed.otp[12] = 0;  // not compared either
    bench.Prepare([&](State& state) { state = changed; });
    bench.Set("FlashPageToggle", *c.skipped == '\0' ? "0" : "1");
    bench.Set("FlashPages", c.skipped);
    const host::LoadRecord report = bench.Verify(image.Segments(bench.device));
    EXPECT_EQ(Outcome(report), c.outcome);
    EXPECT_THAT(Infos(report),
                testing::Contains("Image Verification Succeeded!").Times(Outcome(report) == "ok" ? 1U : 0U));
    EXPECT_TRUE(bench.Chip().State() == changed);
  }
}

INSTANTIATE_TEST_SUITE_P(AllDevices, VerificationLoadTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

}  // namespace
