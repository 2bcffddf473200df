#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TestImage.h"

// Chips whose CCFG asks for a password or forbids debugging: what a load, and a debugger after it, gets of
// them.

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kRamNotWritten[] =
    "Debugging is not allowed, or has not been authorized. Data will not be written to RAM.";

// The devices whose debugging a password opens while the ROM is in SACI.
class DebugAuthorizationTest : public testing::TestWithParam<std::string> {
 protected:
  DebugAuthorizationTest() : bench(GetParam()), image(MakeImage(bench.device, 900)) {}

  host::LoadReport Load() { return bench.Load(image.Segments(bench.device)); }
  Bytes ExpectedRam() const {
    return Laid(image.ram, bench.device.chip.ram.base, bench.device.chip.ram.size, 0x00);
  }
  void Lock() {
    RequirePassword(bench.device, image);
    bench.Set("DebugPassword", kPassword);
    ASSERT_EQ(Outcome(Load()), "ok");
    bench.Chip().PowerCycle();
  }

  Workbench bench;
  TestImage image;
};

TEST_P(DebugAuthorizationTest, WritesRamDataToALockedChipWithTheRightPassword) {
  Lock();
  const host::LoadReport report = Load();
  EXPECT_EQ(Outcome(report), "ok");
  EXPECT_THAT(Errors(report), IsEmpty());
  EXPECT_THAT(Infos(report), Contains("Debug authentication was successful."));
  EXPECT_EQ(bench.Chip().State().ram, ExpectedRam());
  EXPECT_TRUE(bench.probe.IsDebuggingOpen());
}

TEST_P(DebugAuthorizationTest, TakesThePasswordInHexadecimal) {
  Lock();
  bench.Set("DebugPassword", "");
  bench.Set("DebugPasswordFormatList", "Hex");
  bench.Set("DebugPasswordHex", "6F70656e20736573616d6521");
  EXPECT_THAT(Errors(Load()), IsEmpty());
  EXPECT_EQ(bench.Chip().State().ram, ExpectedRam());
}

TEST_P(DebugAuthorizationTest, ReportsAWrongPasswordAndKeepsRamDataBack) {
  Lock();
  const Bytes ramBefore = bench.Chip().State().ram;
  for (const char* wrong : {"open sesame?", "open sesame", "open sesame! ", ""}) {
    SCOPED_TRACE(wrong);
    bench.Set("DebugPassword", wrong);
    const host::LoadReport report = Load();
    EXPECT_EQ(Outcome(report), "ok");  // flash was programmed; only RAM could not be reached
    EXPECT_THAT(Errors(report), Contains(testing::StartsWith("Debug authentication failed. Error: ")));
    EXPECT_THAT(Errors(report), Contains(kRamNotWritten));
    EXPECT_THAT(Infos(report),
                Contains("    You can edit the password in the flash settings under \"Debug Password\"\n"));
    EXPECT_EQ(bench.Chip().State().ram, ramBefore);
    EXPECT_FALSE(bench.probe.IsDebuggingOpen());
  }
}

TEST_P(DebugAuthorizationTest, AnOpenChipIsNotAskedForAPassword) {
  EXPECT_EQ(Outcome(Load()), "ok");
  EXPECT_THAT(bench.services.Commands(), Contains(6).Times(0));
}

TEST_P(DebugAuthorizationTest, UnlocksByScript) {
  Lock();
  host::PluginDevice device(Plugin(), bench.services, bench.device.name);
  (void)device.Initialize();
  bench.probe.PinReset();
  EXPECT_FALSE(bench.probe.IsDebuggingOpen());
  EXPECT_EQ(device.RunScriptFunction("EnsureAuthentication", {1LL}), host::ScriptValue(0LL));
  EXPECT_TRUE(bench.probe.IsDebuggingOpen());
  EXPECT_EQ(bench.services.BrokenPromise(), "");
}

TEST_P(DebugAuthorizationTest, SaysThatDebuggingIsForbiddenLineByLine) {
  image.ccfg[bench.device.chip.authorizationTypeOffset] = 0x00;
  ASSERT_EQ(Outcome(Load()), "ok");
  // A load of RAM data alone leaves the chip as it is, and must find its debug port closed.
  const host::LoadReport report = bench.Load(image.ram);
  EXPECT_EQ(Outcome(report), "ok");
  EXPECT_THAT(Errors(report), ElementsAre(kRamNotWritten));
  EXPECT_THAT(Infos(report), Contains("       - Scripts -> Serin -> ChipErase  to start Chip erase.\n"));
  EXPECT_FALSE(bench.probe.IsDebuggingOpen());
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
  const host::LoadReport report = bench.Load(image.Segments(bench.device));
  EXPECT_EQ(Outcome(report), "ok");
  EXPECT_THAT(Errors(report), IsEmpty());
  EXPECT_THAT(Infos(report), Contains("Debugging Interface is Locked!"));
  EXPECT_EQ(bench.Chip().State().ram, Bytes(bench.device.chip.ram.size, 0));
  bench.Chip().PowerCycle();
  bench.Chip().Clock().Advance(10 * simulator::kMillisecond);
  EXPECT_FALSE(bench.probe.IsDebuggingOpen());
}

INSTANTIATE_TEST_SUITE_P(AllDevices, LockingLoadTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

}  // namespace
