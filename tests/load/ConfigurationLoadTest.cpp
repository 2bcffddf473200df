#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestImage.h"

// What ends up in CCFG, SCFG, OTP and user record, and what a load refuses to put there.

namespace {

using testing::Contains;
using testing::StartsWith;

class ConfigurationLoadTest : public testing::TestWithParam<std::string> {
 protected:
  ConfigurationLoadTest() : bench(GetParam()), image(MakeImage(bench.device, 700)) {}

  host::LoadRecord Load() { return bench.Load(image.Segments(bench.device)); }
  const simulator::ChipState& Chip() { return bench.Chip().State(); }
  const host::ChipFacts& Facts() const { return bench.device.chip; }

  Workbench bench;
  TestImage image;
};

TEST_P(ConfigurationLoadTest, SettingsDecideOnCrcWordsAndUserRecord) {
  bench.Set("CcfgOverwriteCrcsToggle", "0");
  bench.Set("ScfgOverwriteCrcsToggle", "0");
  EXPECT_EQ(Outcome(Load()), "ok");
  EXPECT_EQ(Chip().ccfg, WithoutUserRecord(bench.device, image.ccfg));
  EXPECT_EQ(Chip().scfg, image.scfg);

  bench.Set("CcfgOverwriteCrcsToggle", "1");
  bench.Set("CcfgSkipProgrammingUserRecord", "0");
  EXPECT_EQ(Outcome(Load()), "ok");
  EXPECT_EQ(Chip().ccfg, CcfgWithCrcs(bench.device, image.ccfg));
}

TEST_P(ConfigurationLoadTest, RefusesSettingsThatLockTheChipUnlessTheyAreMeant) {
  image.ccfg[0x10] = 0x3A;  // programFlash
  image.ccfg[0x11] = 0xA4;  // verifyFlash
  EXPECT_EQ(
      Outcome(Load()),
      "The Custom Configuration (CCFG) contain permission settings that can lock the device for further "
      "debugging and flash updates.  Permission setting name: programFlash, reading 0x3, expecting 0xa. "
      "Permission setting name: verifyFlash, reading 0x4, expecting 0xa. If current permission settings "
      "was intended, the \"Permission check\" option must be disabled to program current settings.");
  EXPECT_EQ(Chip().ccfg, Bytes(Facts().ccfg.size, 0xFF));
  bench.Set("PermissionsSetting", "0");
  EXPECT_EQ(Outcome(Load()), "ok");
  EXPECT_EQ(Chip().ccfg, WithoutUserRecord(bench.device, CcfgWithCrcs(bench.device, image.ccfg)));

  image.ccfg[0x10] = image.ccfg[0x11] = 0xAA;
  image.scfg[0x08] = 0xAB;
  bench.Set("PermissionsSetting", "1");
  const bool isChecked =
      Facts().hsm != host::HsmForm::None;  // the parts that take HSM firmware, as it happens
  EXPECT_THAT(Outcome(Load()), StartsWith(isChecked ? "The Security Configuration (SCFG) contain" : "ok"));
}

TEST_P(ConfigurationLoadTest, ProgramsAUserRecordAloneWithoutErasing) {
  bench.Prepare([](simulator::ChipState& state) { state.main = Noise(state.main.size(), 3); });
  const host::CoveredRange place = Facts().userRecord;
  Bytes record = Noise(place.length, 1);
  PutCrcRight(record, {0, place.length - 4});
  simulator::ChipState expected = Chip();
  std::copy(record.begin(), record.end(), expected.ccfg.begin() + place.offset);

  const host::LoadRecord report = bench.Load({{Facts().ccfg.base + place.offset, record}});
  EXPECT_EQ(Outcome(report), "ok");
  EXPECT_THAT(Errors(report), testing::IsEmpty());
  EXPECT_TRUE(Chip() == expected);
  EXPECT_THAT(bench.services.Commands(), Contains(testing::AnyOf(9, 28)).Times(0));

  record[5] = 0;
  const std::vector<host::ImageSegment> spoiled{{Facts().ccfg.base + place.offset, record}};
  EXPECT_EQ(Outcome(bench.Load(spoiled)),
            "Error when verifying CCFG - Calculated CRC32 does not match expected CRC32");
  bench.Set("CcfgVerifyUserRecordCrcToggle", "0");
  EXPECT_EQ(Outcome(bench.Load(spoiled)), "ok");
}

TEST_P(ConfigurationLoadTest, FailsWhenOtpHoldsSomethingElse) {
  if (Facts().otp.size == 0) return;
  bench.Prepare([](simulator::ChipState& state) { state.otp[20] = 0; });
  EXPECT_EQ(Outcome(Load()), "Error when programming OTP - Flash hardware FSM error");
}

INSTANTIATE_TEST_SUITE_P(AllDevices, ConfigurationLoadTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

}  // namespace
