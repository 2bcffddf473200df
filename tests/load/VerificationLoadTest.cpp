#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SweepBench.h"
#include "TestImage.h"

// Loads that only compare: nothing on the chip changes, and what differs is told.

namespace {

using testing::Contains;

class VerificationLoadTest : public testing::TestWithParam<std::string> {
 protected:
  VerificationLoadTest() : bench(GetParam()), image(MakeImage(bench.device, 800)) {
    EXPECT_EQ(Outcome(bench.Load(image.Segments(bench.device))), "ok");
    loaded = bench.Chip().State();
  }

  host::LoadReport Verify() { return bench.Verify(image.Segments(bench.device)); }
  // Flips one bit on the chip and verifies; the chip is whole again afterwards.
  host::LoadReport VerifyWithBitChanged(Bytes simulator::ChipState::*region, std::size_t offset) {
    bench.Prepare([&](simulator::ChipState& state) { (state.*region)[offset] ^= 0x10; });
    host::LoadReport report = Verify();
    bench.Prepare([&](simulator::ChipState& state) { state = loaded; });
    return report;
  }

  Workbench bench;
  TestImage image;
  simulator::ChipState loaded;
};

TEST_P(VerificationLoadTest, SucceedsOnTheRightImageAndChangesNothing) {
  const host::LoadReport report = Verify();
  EXPECT_EQ(Outcome(report), "ok");
  EXPECT_THAT(Infos(report), Contains("Image Verification Succeeded!").Times(1));
  EXPECT_TRUE(bench.Chip().State() == loaded);
}

TEST_P(VerificationLoadTest, FindsOneBitInEveryRegion) {
  const char* const kMainError =
      "Error when verifying flash - Calculated CRC32 does not match expected CRC32";
  const char* const kCcfgError = "Error when verifying CCFG - Calculated CRC32 does not match expected CRC32";
  const char* const kScfgError = "Error when verifying SCFG - Calculated CRC32 does not match expected CRC32";
  const host::ChipFacts& chip = bench.device.chip;
  const struct {
    const char* what;
    Bytes simulator::ChipState::*region;
    std::size_t offset;
    const char* outcome;
  } cases[] = {
      {"first byte of MAIN", &simulator::ChipState::main, 0, kMainError},
      {"fill byte beside a piece", &simulator::ChipState::main, 3 * 2048 + 99, kMainError},
      {"a sector that the image does not touch", &simulator::ChipState::main, 20 * 2048, "ok"},
      {"boot configuration", &simulator::ChipState::ccfg, chip.bootCrc.offset, kCcfgError},
      {"CCFG", &simulator::ChipState::ccfg, chip.ccfgCrc.offset + chip.ccfgCrc.length - 1, kCcfgError},
      {"debug configuration", &simulator::ChipState::ccfg, chip.debugCrc.offset + chip.debugCrc.length - 1,
       kCcfgError},
      {"user record, which is left out", &simulator::ChipState::ccfg, chip.userRecord.offset, "ok"},
      {"SCFG", &simulator::ChipState::scfg, chip.scfgCrc.offset + chip.scfgCrc.length - 1, kScfgError},
  };
  for (const auto& c : cases) {
    const host::LoadReport report = VerifyWithBitChanged(c.region, c.offset);
    EXPECT_EQ(Outcome(report), c.outcome) << c.what;
    EXPECT_THAT(Infos(report),
                Contains("Image Verification Succeeded!").Times(Outcome(report) == "ok" ? 1U : 0U))
        << c.what;
  }
}

TEST_P(VerificationLoadTest, NeitherComparesNorWritesOtpAndRam) {
  bench.Prepare([](simulator::ChipState& state) {
    std::fill(state.otp.begin(), state.otp.end(), std::uint8_t{0});
    std::fill(state.ram.begin(), state.ram.end(), std::uint8_t{0x77});
  });
  const simulator::ChipState before = bench.Chip().State();
  EXPECT_EQ(Outcome(Verify()), "ok");
  EXPECT_TRUE(bench.Chip().State() == before);
}

TEST_P(VerificationLoadTest, FailsOverARegionThatTheImageLacks) {
  std::vector<host::ImageSegment> withoutScfg = image.main;
  withoutScfg.push_back({bench.device.chip.ccfg.base, image.ccfg});

  // The plug-in's own words: the host makes a milder judgement of them.
  const auto said = [&](const std::vector<host::ImageSegment>& segments) {
    const host::LoadPlan plan = bench.Plan(segments);
    Attempt attempt(bench, plan);
    const std::optional<std::string> error = ErrorOf([&] { attempt.Verify(); });
    return error.value_or(attempt.infos.back());
  };
  EXPECT_EQ(said({{bench.device.chip.ccfg.base, image.ccfg}}), "Main flash Verification Failed!");
  EXPECT_EQ(said(image.main), "Error when verifying CCFG - Calculated CRC32 does not match expected CRC32");
  EXPECT_EQ(said(withoutScfg), "Error when verifying SCFG - Calculated CRC32 does not match expected CRC32");
  EXPECT_TRUE(bench.Chip().State() == loaded);
}

TEST_P(VerificationLoadTest, LeavesOutSectorsThatAreToBeSkipped) {
  bench.Set("FlashPageToggle", "1");
  bench.Set("FlashPages", "0");
  EXPECT_EQ(Outcome(VerifyWithBitChanged(&simulator::ChipState::main, 0)), "ok");
}

INSTANTIATE_TEST_SUITE_P(AllDevices, VerificationLoadTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

}  // namespace
