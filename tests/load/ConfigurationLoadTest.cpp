#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestImage.h"

// What ends up in CCFG, SCFG, OTP and user record, and what a load refuses to put there.

namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::StartsWith;

class ConfigurationLoadTest : public testing::TestWithParam<std::string> {
 protected:
  ConfigurationLoadTest() : bench(GetParam()), image(MakeImage(bench.device, 700)) {}

  host::LoadReport Load() { return bench.Load(image.Segments(bench.device)); }
  const simulator::ChipState& Chip() { return bench.Chip().State(); }
  const host::ChipFacts& Facts() const { return bench.device.chip; }
  // Of the CCFG, where the user record alone would go.
  host::ImageSegment UserRecord(const Bytes& record) const {
    return {Facts().ccfg.base + Facts().userRecord.offset, record};
  }
  // With a right CRC word at its end.
  Bytes ValidUserRecord() const {
    Bytes record = Noise(Facts().userRecord.length, 1);
    PutCrcRight(record, {0, Facts().userRecord.length - 4});
    return record;
  }

  Workbench bench;
  TestImage image;
};

class OtpLoadTest : public ConfigurationLoadTest {};

std::vector<std::string> DevicesWithOtp() {
  std::vector<std::string> names = DeviceNames();
  std::erase_if(names, [](const std::string& name) { return Workbench(name).device.chip.otp.size == 0; });
  return names;
}

TEST_P(ConfigurationLoadTest, LeavesCrcWordsAloneUnlessAskedToPutThemRight) {
  bench.Set("CcfgOverwriteCrcsToggle", "0");
  bench.Set("ScfgOverwriteCrcsToggle", "0");
  EXPECT_EQ(Outcome(Load()), "ok");
  EXPECT_EQ(Chip().ccfg, WithoutUserRecord(bench.device, image.ccfg));
  EXPECT_EQ(Chip().scfg, image.scfg);
}

TEST_P(ConfigurationLoadTest, SaysWhichCrcWordsItPutRight) {
  const std::vector<std::string> infos = Infos(Load());
  for (const char* field : {"ccfg.bootCfg.crc32 @ address 0x4C00000C", "ccfg.crc32 @ address 0x4C00074C",
                            "ccfg.debugCfg.crc32 @ address 0x4C0007FC"})
    EXPECT_THAT(infos, Contains(StartsWith(std::string("Updating CRC32 field ") + field)).Times(1)) << field;
  EXPECT_THAT(infos, Contains(HasSubstr("@ address 0x4C0010E4, based on data in the range [0x4C001000, "
                                        "0x4C0010E3]"))
                         .Times(1));
  EXPECT_THAT(infos, Contains(HasSubstr("ccfg.userRecord.crc32")).Times(0));

  image.ccfg = CcfgWithCrcs(bench.device, image.ccfg);
  image.scfg = ScfgWithCrc(bench.device, image.scfg);
  EXPECT_THAT(Infos(Load()), Contains(StartsWith("Updating CRC32 field")).Times(0));
}

TEST_P(ConfigurationLoadTest, ProgramsTheUserRecordWithTheCcfgWhenAsked) {
  bench.Set("CcfgSkipProgrammingUserRecord", "0");
  EXPECT_EQ(Outcome(Load()), "ok");
  EXPECT_EQ(Chip().ccfg, CcfgWithCrcs(bench.device, image.ccfg));
}

TEST_P(ConfigurationLoadTest, KeepsTheUsedKeysOfTheRingAndAtLeastOne) {
  constexpr std::uint32_t kRing = 0xE8;
  constexpr std::uint32_t kKey = 44;
  for (const std::uint32_t used : {0U, 1U, 5U, 18U}) {
    SCOPED_TRACE(used);
    std::fill(image.scfg.begin() + kRing, image.scfg.end(), std::uint8_t{0xFF});
    const Bytes keys = Noise(used * kKey, 2);
    std::copy(keys.begin(), keys.end(), image.scfg.begin() + kRing);
    const Bytes expected = ScfgWithCrc(bench.device, image.scfg);
    // An entry behind an unused one is not reached.
    if (used < 17) image.scfg[kRing + (used + 1) * kKey] = 0x12;
    EXPECT_EQ(Outcome(Load()), "ok");
    EXPECT_EQ(Chip().scfg, expected);
  }
}

TEST_P(ConfigurationLoadTest, RefusesSettingsThatLockTheChipUnlessTheyAreMeant) {
  image.ccfg[0x10] = 0x3A;  // programFlash
  image.ccfg[0x11] = 0xA4;  // verifyFlash
  const std::string error = Outcome(Load());
  EXPECT_EQ(
      error,
      "The Custom Configuration (CCFG) contain permission settings that can lock the device for further "
      "debugging and flash updates.  Permission setting name: programFlash, reading 0x3, expecting 0xa. "
      "Permission setting name: verifyFlash, reading 0x4, expecting 0xa. If current permission settings "
      "was intended, the \"Permission check\" option must be disabled to program current settings.");
  EXPECT_EQ(Chip().ccfg, Bytes(Facts().ccfg.size, 0xFF));

  bench.Set("PermissionsSetting", "0");
  EXPECT_EQ(Outcome(Load()), "ok");
  EXPECT_EQ(Chip().ccfg, WithoutUserRecord(bench.device, CcfgWithCrcs(bench.device, image.ccfg)));
}

TEST_P(ConfigurationLoadTest, ChecksScfgPermissionsOnlyOnNewerParts) {
  image.scfg[0x08] = 0xAB;
  const bool checked = Facts().hsm != host::HsmForm::None;  // the parts that take HSM firmware, as it happens
  const std::string outcome = Outcome(Load());
  if (!checked) {
    EXPECT_EQ(outcome, "ok");
    return;
  }
  EXPECT_THAT(outcome, StartsWith("The Security Configuration (SCFG) contain permission settings"));
  EXPECT_EQ(Chip().scfg, Bytes(Facts().scfg.size, 0xFF));
  bench.Set("PermissionsSetting", "0");
  EXPECT_EQ(Outcome(Load()), "ok");
}

TEST_P(ConfigurationLoadTest, ProgramsAUserRecordAloneWithoutErasing) {
  bench.Prepare([](simulator::ChipState& state) { state.main = Noise(state.main.size(), 3); });
  simulator::ChipState expected = bench.Chip().State();
  const Bytes record = ValidUserRecord();
  std::copy(record.begin(), record.end(), expected.ccfg.begin() + Facts().userRecord.offset);

  const host::LoadReport report = bench.Load({UserRecord(record)});
  EXPECT_EQ(Outcome(report), "ok");
  EXPECT_THAT(Errors(report), testing::IsEmpty());
  EXPECT_TRUE(Chip() == expected);
  EXPECT_THAT(bench.services.Commands(), Contains(testing::AnyOf(9, 28)).Times(0));
}

TEST_P(ConfigurationLoadTest, ChecksTheCrcOfAUserRecordAloneUnlessToldNotTo) {
  Bytes record = ValidUserRecord();
  record[5] ^= 1;
  EXPECT_EQ(Outcome(bench.Load({UserRecord(record)})),
            "Error when verifying CCFG - Calculated CRC32 does not match expected CRC32");
  bench.Set("CcfgVerifyUserRecordCrcToggle", "0");
  EXPECT_EQ(Outcome(bench.Load({UserRecord(record)})), "ok");
}

TEST_P(ConfigurationLoadTest, PutsADebugAuthorizationInPlaceOfTheImages) {
  bench.Set("CcfgOverwriteCrcsToggle", "0");  // overwritten fields get fresh CRC words all the same
  bench.Set("CcfgOverwriteAuthorizationFieldsToggle", "1");
  bench.Set("CcfgOverwriteAuthorizationFieldsTypeChoicelist", "Require debug authentication");
  bench.Set("CcfgOverwriteAuthorizationFieldsPasswordId", "1A2B");
  bench.Set("CcfgOverwriteAuthorizationFieldsPasswordHash", std::string(62, 'c') + "D");
  EXPECT_EQ(Outcome(Load()), "ok");

  Bytes expected = image.ccfg;
  expected[Facts().authorizationTypeOffset] = 0xA5;
  const Bytes id{0, 0, 0, 0, 0, 0, 0x1A, 0x2B};
  std::copy(id.begin(), id.end(), expected.begin() + Facts().authorizationIdOffset);
  const auto hash = expected.begin() + Facts().authorizationHashOffset;
  std::fill_n(hash, 32, std::uint8_t{0xCC});
  hash[0] = 0x0C;
  hash[31] = 0xCD;
  EXPECT_EQ(Chip().ccfg, WithoutUserRecord(bench.device, CcfgWithCrcs(bench.device, expected)));
}

TEST_P(OtpLoadTest, SplitsABlockThatRunsFromTheCcfgIntoOtp) {
  Bytes block = image.ccfg;
  const Bytes otp = Noise(Facts().otp.size, 4);
  block.insert(block.end(), otp.begin(), otp.end());
  host::PluginDevice device(Plugin(), bench.services, bench.device.name);
  (void)device.Initialize();
  device.StartLoad();
  device.WriteBlock(Facts().ccfg.base, block);
  device.EndLoad();
  EXPECT_EQ(Chip().ccfg, WithoutUserRecord(bench.device, CcfgWithCrcs(bench.device, image.ccfg)));
  EXPECT_EQ(Chip().otp, otp);
}

// What the chip answers decides; each refusal must end the load with its own text, and the next load must not
// suffer from it.
TEST_P(ConfigurationLoadTest, FailsWithTheChipsReasonWhenItRefusesARegion) {
  struct Refusal {
    int command;
    const char* prefix;
  };
  std::vector<Refusal> refusals = {{12, "Error when programming CCFG - "},
                                   {17, "Error when verifying CCFG - "},
                                   {26, "Error when programming SCFG - "},
                                   {27, "Error when verifying SCFG - "}};
  if (Facts().otp.size != 0) refusals.push_back({25, "Error when programming OTP - "});
  for (const Refusal& refusal : refusals) {
    SCOPED_TRACE(refusal.command);
    bench.Chip().AskedFaults().Add("saci:" + std::to_string(refusal.command) + ":result=134");
    EXPECT_EQ(Outcome(Load()), refusal.prefix + std::string("Command is not allowed due to restrictions"));
    bench.Chip().AskedFaults() = {};
    EXPECT_EQ(Outcome(Load()), "ok");
  }
}

TEST_P(OtpLoadTest, FailsWhenOtpHoldsSomethingElse) {
  bench.Prepare([](simulator::ChipState& state) { state.otp[20] = 0; });
  EXPECT_EQ(Outcome(Load()), "Error when programming OTP - Flash hardware FSM error");
}

TEST_P(ConfigurationLoadTest, NamesTheFirstRamByteThatReadsBackWrong) {
  const host::ImageSegment ram = image.ram[1];
  for (const std::uint32_t wrong : {0U, 3U, static_cast<std::uint32_t>(ram.data.size()) - 1}) {
    SCOPED_TRACE(wrong);
    const std::uint32_t address = ram.address + wrong;
    const std::uint8_t expected = ram.data[wrong];
    bench.Chip().AskedFaults().Add("ram:" + std::to_string(address));
    char text[100];
    std::snprintf(text, sizeof text, "Verification error at address 0x%08x, expected 0x%02x but read 0x%02x",
                  address, expected, expected ^ 1U);
    EXPECT_EQ(Outcome(Load()), text);
    bench.Chip().AskedFaults() = {};
  }
  EXPECT_EQ(Outcome(Load()), "ok");
}

INSTANTIATE_TEST_SUITE_P(AllDevices, ConfigurationLoadTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);
INSTANTIATE_TEST_SUITE_P(AllDevices, OtpLoadTest, testing::ValuesIn(DevicesWithOtp()), DeviceCaseName);

}  // namespace
