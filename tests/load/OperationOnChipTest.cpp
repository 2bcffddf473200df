#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SweepBench.h"
#include "simulator/HsmImage.h"

// Named operations on the simulated chip: what they leave on it and what they say.

namespace {

using testing::Contains;
using testing::ElementsAre;

bool IsBlank(const Bytes& bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0xFF; });
}

// A device object on the bench, for operations only.
class OperationTest : public testing::TestWithParam<std::string> {
 protected:
  OperationTest() : bench(GetParam()), device(bench, noPlan) { device.Create(); }

  // "ok", or the error text.
  std::string Perform(const std::string& operation) {
    device.infos.clear();
    const std::optional<std::string> error = ErrorOf([&] { device.Perform(operation); });
    EXPECT_EQ(device.services.BrokenPromise(), "");
    return error.value_or("ok");
  }

  const host::LoadPlan noPlan;
  Workbench bench;
  Attempt device;
};

class OperationOnChipTest : public OperationTest {
 protected:
  OperationOnChipTest() {
    EXPECT_EQ(Outcome(bench.Load(MakeImage(bench.device, 1000).Segments(bench.device))), "ok");
    loaded = bench.Chip().State();
  }

  simulator::ChipState loaded;
};

TEST_P(OperationOnChipTest, EraseBlanksTheChipButForOtp) {
  EXPECT_EQ(Perform("BlankCheck"), "ok");
  EXPECT_THAT(device.infos, ElementsAre("Blank Check: Device CCFG sector is programmed",
                                        "Blank Check: Device MAIN flash is programmed"));
  EXPECT_TRUE(bench.Chip().State() == loaded);
  EXPECT_EQ(Perform("Erase"), "ok");
  const simulator::ChipState& chip = bench.Chip().State();
  EXPECT_TRUE(IsBlank(chip.main) && IsBlank(chip.ccfg) && IsBlank(chip.scfg));
  EXPECT_EQ(chip.otp, loaded.otp);
  EXPECT_FALSE(device.services.IsConnected(host::Core::DebugPort));
  EXPECT_EQ(Perform("BlankCheck"), "ok");
  EXPECT_THAT(device.infos, ElementsAre("Blank Check: Device flash is blank"));
}

TEST_P(OperationOnChipTest, ChipEraseRetainKeepsTheMarkedSectors) {
  EXPECT_EQ(Perform("ChipEraseRetain"), "ok");
  Bytes expected(loaded.main.size(), 0xFF);
  for (std::uint32_t sector = 0; sector < expected.size() / 2048; ++sector)
    if (IsMarkedRetained(bench.device, sector))
      std::copy_n(loaded.main.begin() + sector * 2048, 2048, expected.begin() + sector * 2048);
  EXPECT_EQ(bench.Chip().State().main, expected);
  EXPECT_TRUE(IsBlank(bench.Chip().State().ccfg));
  // The configuration is gone with the first erase, and so is the mark.
  EXPECT_EQ(Perform("ChipEraseRetain"), "ok");
  EXPECT_THAT(device.infos,
              Contains("No sectors were retained during Chip Erase - only allowed if CCFG is valid"));
  EXPECT_TRUE(IsBlank(bench.Chip().State().main));
}

TEST_P(OperationOnChipTest, ReadDeviceInfoPublishesWhatTheChipIs) {
  EXPECT_EQ(Perform("ReadDeviceInfo"), "ok");
  const std::uint32_t mainKb = bench.device.chip.mainSize / 1024;
  EXPECT_EQ(bench.settings.Get("DeviceInfoFlashSize"),
            std::to_string(mainKb) + " KB (" + std::to_string(mainKb / 2) + " sectors)");
  EXPECT_EQ(bench.settings.Get("DeviceInfoRAMSize"),
            std::to_string(bench.device.chip.ram.size / 1024) + " KB");
  EXPECT_NE(bench.settings.Get("DeviceInfoRevision"), "--");
}

TEST_P(OperationOnChipTest, AResetThatMissesSaciIsNoticed) {
  bench.Chip().AskedFaults().Add("reset-misses-saci:nth=1");
  EXPECT_EQ(Perform("Erase"), "Target did not enter SACI after pin reset");
  EXPECT_EQ(bench.Chip().State().main, loaded.main);
  EXPECT_EQ(Perform("Erase"), "ok");
}

INSTANTIATE_TEST_SUITE_P(AllDevices, OperationOnChipTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

class HsmOnChipTest : public OperationTest {
 protected:
  Bytes Image(std::uint8_t major, bool boots = true) const {
    const bool isWhole = bench.device.chip.hsm == host::HsmForm::Whole;
    return simulator::BuildHsmImage({major, 4, 7, boots, Noise(1000, 5)},
                                    isWhole ? simulator::HsmKind::Whole : simulator::HsmKind::Records, 128);
  }
};

TEST_P(HsmOnChipTest, AnUpdateIsTakenOrRefusedForWhatTheImageIs) {
  Bytes damaged = Image(2);
  damaged[damaged.size() - 20] ^= 4;
  Bytes foreign = Image(2);
  foreign[0] ^= 1;
  const struct {
    Bytes image;
    const char* outcome;
    const char* status;
    const char* version;  // that the chip has afterwards
  } steps[] = {
      {damaged, "HSM FW image failed to be verified", "The target image failed to verify.",
       "FW Version: 1.0.0"},
      {foreign, "HSM FW image header is invalid", "Invalid image detected.", "FW Version: 1.0.0"},
      {Image(2), "ok", "Requested update was successful.", "FW Version: 2.4.7"},
      {Image(1), "Incorrect HSM FW version", "Requested image update process failed.", "FW Version: 2.4.7"},
      {Image(3, false), "HSM FW has been updated but HSM failed to boot", "HSM FW failed to boot.", "--"},
      {Image(4), "ok", "Requested update was successful.", "FW Version: 4.4.7"},
  };
  for (const auto& step : steps) {
    const TemporaryFile file(step.image);
    bench.Set("HsmImagePath", file.path);
    EXPECT_EQ(Perform("ProgramHsmImage"), step.outcome);
    EXPECT_EQ(Perform("ReadHsmUpdateStatus"), "ok");
    EXPECT_EQ(bench.settings.Get("HsmUpdateStatus"), step.status) << step.outcome;
    (void)Perform("ReadHsmSysInfo");
    EXPECT_EQ(bench.settings.Get("HsmSysInfo"), step.version) << step.outcome;
  }
}

std::vector<std::string> DevicesWithHsm() {
  std::vector<std::string> names = DeviceNames();
  std::erase_if(
      names, [](const std::string& name) { return Workbench(name).device.chip.hsm == host::HsmForm::None; });
  return names;
}
INSTANTIATE_TEST_SUITE_P(Devices, HsmOnChipTest, testing::ValuesIn(DevicesWithHsm()), DeviceCaseName);

}  // namespace
