#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SweepBench.h"
#include "simulator/HsmImage.h"

// Named operations on the simulated chip: what they leave on it and what they say.

namespace {

using simulator::ChipState;
using testing::ElementsAre;

// A loaded chip and a device object for operations only.
class OperationTest : public testing::TestWithParam<std::string> {
 protected:
  OperationTest() {
    EXPECT_EQ(Outcome(bench.Load(image.All())), "ok");
    loaded = bench.State();
    device.Create();
  }

  // "ok", or the error text.
  std::string Perform(const std::string& operation) {
    device.infos.clear();
    return ErrorOf([&] { device.Perform(operation); });
  }

  // The loaded chip after an erase.
  [[nodiscard]] ChipState Erased(bool retains) const {
    ChipState chip = loaded;
    for (std::uint32_t sector = 0; sector < chip.main.size() / kSectorSize; ++sector)
      if (!retains || !image.Retains(sector))
        std::fill_n(chip.main.begin() + sector * kSectorSize, kSectorSize, std::uint8_t{0xFF});
    chip.ccfg.assign(chip.ccfg.size(), 0xFF);
    chip.scfg.assign(chip.scfg.size(), 0xFF);
    return chip;
  }

  Workbench bench{GetParam()};
  const TestImage image{bench.device.chip, 1000};
  ChipState loaded;
  Attempt device{bench};
};

TEST_P(OperationTest, EraseBlanksTheChipButForOtp) {
  EXPECT_EQ(Perform("BlankCheck"), "ok");
  EXPECT_THAT(device.infos, ElementsAre("Blank Check: Device CCFG sector is programmed",
                                        "Blank Check: Device MAIN flash is programmed"));
  EXPECT_EQ(Difference(bench.State(), loaded), "");
  bench.Chip().AskedFaults().Add("reset-misses-saci:nth=1");
  EXPECT_EQ(Perform("Erase"), "Target did not enter SACI after pin reset");
  EXPECT_EQ(Difference(bench.State(), loaded), "");
  EXPECT_EQ(Perform("Erase"), "ok");
  EXPECT_EQ(Difference(bench.State(), Erased(false)), "");
  EXPECT_FALSE(device.services.IsConnected(host::Core::DebugPort));
  EXPECT_EQ(Perform("BlankCheck"), "ok");
  EXPECT_THAT(device.infos, ElementsAre("Blank Check: Device flash is blank"));
}

TEST_P(OperationTest, ChipEraseRetainKeepsTheMarkedSectors) {
  EXPECT_EQ(Perform("ChipEraseRetain"), "ok");
  EXPECT_EQ(Difference(bench.State(), Erased(true)), "");
  // The configuration is gone with the first erase, and so is the mark.
  EXPECT_EQ(Perform("ChipEraseRetain"), "ok");
  EXPECT_THAT(device.infos, testing::Contains("No sectors were retained during Chip Erase - only allowed if "
                                              "CCFG is valid"));
  EXPECT_EQ(Difference(bench.State(), Erased(false)), "");
}

TEST_P(OperationTest, ReadDeviceInfoPublishesWhatTheChipIs) {
  EXPECT_EQ(Perform("ReadDeviceInfo"), "ok");
  const std::uint32_t mainKb = image.chip.mainSize / 1024;
  EXPECT_EQ(bench.settings.Get("DeviceInfoFlashSize"),
            std::to_string(mainKb) + " KB (" + std::to_string(mainKb / 2) + " sectors)");
  EXPECT_EQ(bench.settings.Get("DeviceInfoRAMSize"), std::to_string(image.chip.ram.size / 1024) + " KB");
  EXPECT_NE(bench.settings.Get("DeviceInfoRevision"), "--");
}

INSTANTIATE_TEST_SUITE_P(AllDevices, OperationTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

class HsmOnChipTest : public OperationTest {
 protected:
  [[nodiscard]] Bytes Image(std::uint8_t major, bool boots = true) const {
    const bool isWhole = image.chip.hsm == host::HsmForm::Whole;
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
    bench.ProvideHsmImage(step.image);
    EXPECT_EQ(Perform("ProgramHsmImage"), step.outcome);
    EXPECT_EQ(Perform("ReadHsmUpdateStatus"), "ok");
    EXPECT_EQ(bench.settings.Get("HsmUpdateStatus"), step.status) << step.outcome;
    (void)Perform("ReadHsmSysInfo");
    EXPECT_EQ(bench.settings.Get("HsmSysInfo"), step.version) << step.outcome;
  }
}

INSTANTIATE_TEST_SUITE_P(Devices, HsmOnChipTest, testing::ValuesIn(DeviceNames("HsmImagePath")),
                         DeviceCaseName);

}  // namespace
