#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestImage.h"

// Chips whose CCFG asks for a password or forbids debugging: what a load, and a debugger after it, gets of
// them.

namespace {

using testing::Contains;
using testing::IsEmpty;

constexpr char kRamNotWritten[] =
    "Debugging is not allowed, or has not been authorized. Data will not be written to RAM.";

// The devices whose debugging a password opens while the ROM is in SACI.
class DebugAuthorizationTest : public testing::TestWithParam<std::string> {
 protected:
  DebugAuthorizationTest() : bench(GetParam()), image(MakeImage(bench.device, 900)) {}

  host::LoadRecord Load() { return bench.Load(image.Segments(bench.device)); }

  Workbench bench;
  TestImage image;
};

TEST_P(DebugAuthorizationTest, OnlyTheRightPasswordOpensTheWayToTheRam) {
  RequirePassword(bench.device, image);
  bench.Set("DebugPassword", kPassword);
  for (int onClosedChip = 0; onClosedChip < 2; ++onClosedChip) {
    const host::LoadRecord report = Load();
    EXPECT_EQ(Outcome(report), "ok");
    EXPECT_THAT(Errors(report), IsEmpty());
    EXPECT_EQ(bench.Chip().State().ram,
              Laid(image.ram, bench.device.chip.ram.base, bench.device.chip.ram.size, 0x00));
    EXPECT_TRUE(bench.IsDebuggingOpen());
    bench.Chip().PowerCycle();
  }
  const Bytes ramBefore = bench.Chip().State().ram;
  for (const char* wrong : {"open sesame?", "open sesame", "open sesame! ", ""}) {
    SCOPED_TRACE(wrong);
    bench.Set("DebugPassword", wrong);
    const host::LoadRecord report = Load();
    EXPECT_EQ(Outcome(report), "ok");  // flash was programmed; only RAM could not be reached
    EXPECT_THAT(Errors(report), Contains(testing::StartsWith("Debug authentication failed. Error: ")));
    EXPECT_THAT(Errors(report), Contains(kRamNotWritten));
    EXPECT_EQ(bench.Chip().State().ram, ramBefore);
    EXPECT_FALSE(bench.IsDebuggingOpen());
  }
}

TEST_P(DebugAuthorizationTest, AChipThatForbidsDebuggingTakesNoRamData) {
  image.ccfg[bench.device.chip.authorizationTypeOffset] = 0x00;
  ASSERT_EQ(Outcome(Load()), "ok");
  // A load of RAM data alone leaves the chip as it is, and must find its debug port closed.
  const host::LoadRecord report = bench.Load(image.ram);
  EXPECT_EQ(Outcome(report), "ok");
  EXPECT_THAT(Errors(report), testing::ElementsAre(kRamNotWritten));
  EXPECT_FALSE(bench.IsDebuggingOpen());
}

std::vector<std::string> DevicesWithPassword() {
  std::vector<std::string> names = DeviceNames();
  std::erase_if(
      names, [](const std::string& name) { return Workbench(name).device.Find("DebugPassword") == nullptr; });
  return names;
}
INSTANTIATE_TEST_SUITE_P(Devices, DebugAuthorizationTest, testing::ValuesIn(DevicesWithPassword()),
                         DeviceCaseName);

class LockingLoadTest : public testing::TestWithParam<std::string> {};

TEST_P(LockingLoadTest, SaysSoAndWritesNoRamData) {
  Workbench bench(GetParam());
  TestImage image = MakeImage(bench.device, 950);
  bench.Set("CcfgOverwriteAuthorizationFieldsToggle", "1");
  bench.Set("CcfgOverwriteAuthorizationFieldsTypeChoicelist", "Debug not allowed");
  const host::LoadRecord report = bench.Load(image.Segments(bench.device));
  EXPECT_EQ(Outcome(report), "ok");
  EXPECT_THAT(Errors(report), IsEmpty());
  EXPECT_THAT(Infos(report), Contains("Debugging Interface is Locked!"));
  EXPECT_EQ(bench.Chip().State().ram, Bytes(bench.device.chip.ram.size, 0));
  bench.Chip().PowerCycle();
  bench.Chip().Clock().Advance(10 * simulator::kMillisecond);
  EXPECT_FALSE(bench.IsDebuggingOpen());
}

INSTANTIATE_TEST_SUITE_P(AllDevices, LockingLoadTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

}  // namespace
