#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Workbench.h"
#include "tests/support/ErrorOf.h"

// A user record by itself, and what a load gets of a chip whose CCFG forbids debugging.

namespace {

using simulator::ChipState;
using testing::Contains;
using testing::IsEmpty;

class ConfigurationLoadTest : public testing::TestWithParam<std::string> {
 protected:
  Workbench bench{GetParam()};
  const host::ChipFacts& chip = bench.device.chip;
  CheckImage image{chip, 700};
};

TEST_P(ConfigurationLoadTest, ProgramsAUserRecordAloneWithoutErasing) {
  const host::CoveredRange place = chip.userRecord;
  bench.Prepare([](ChipState& state) { state.main = Noise(state.main.size(), 3); });
  Bytes record = Noise(place.length, 1);
  PutCrcRight(record, {0, place.length - 4});
  ChipState expected = bench.State();
  std::copy(record.begin(), record.end(), expected.ccfg.begin() + place.offset);
  const auto load = [&] { return bench.Load({{chip.ccfg.base + place.offset, record}}); };

  const host::LoadRecord report = load();
  EXPECT_EQ(Outcome(report), "ok");
  EXPECT_THAT(Errors(report), IsEmpty());
  EXPECT_EQ(Difference(bench.State(), expected), "");
  for (const host::SaciExchange& exchange : bench.services.Exchanges())
    EXPECT_THAT(exchange.command, testing::Not(testing::AnyOf(9, 28))) << "erases";

  record[5] = 0;
  EXPECT_EQ(Outcome(load()), "Error when verifying CCFG - Calculated CRC32 does not match expected CRC32");
  bench.Set("CcfgVerifyUserRecordCrcToggle", "0");
  EXPECT_EQ(Outcome(load()), "ok");
}

TEST_P(ConfigurationLoadTest, AChipThatItLocksTakesNoRamData) {
  bench.Set("CcfgOverwriteAuthorizationFieldsToggle", "1");
  bench.Set("CcfgOverwriteAuthorizationFieldsTypeChoicelist", "Debug not allowed");
  const host::LoadRecord report = bench.Load(image.All());
  EXPECT_EQ(Outcome(report), "ok");
  EXPECT_THAT(Errors(report), IsEmpty());
  EXPECT_THAT(Infos(report), Contains("Debugging Interface is Locked!"));
  EXPECT_EQ(bench.State().ram, Bytes(chip.ram.size, 0));
  bench.Chip().PowerCycle();
  bench.Chip().Clock().Advance(10 * simulator::kMillisecond);
  EXPECT_FALSE(bench.IsDebuggingOpen());
  EXPECT_EQ(ErrorOf([&] { bench.probe.Connect(host::Core::Cortex); }),
            "Cortex: cannot be connected, its debug port is closed");
}

INSTANTIATE_TEST_SUITE_P(AllDevices, ConfigurationLoadTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

}  // namespace
