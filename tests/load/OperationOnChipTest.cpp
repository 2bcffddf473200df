#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TemporaryFile.h"
#include "TestImage.h"
#include "simulator/HsmImage.h"

// Named operations and script functions on the simulated chip: what they leave on it and what they say.

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

// A device object on the bench, with what it says.
class DeviceOnBench {
 public:
  explicit DeviceOnBench(Workbench& workbench)
      : bench(workbench), device(Plugin(), bench.services, bench.device.name) {
    (void)device.Initialize();
    bench.services.onMessage = [this](bool isError, const std::string& text) {
      (isError ? errors : infos).push_back(text);
    };
  }
  ~DeviceOnBench() { bench.services.onMessage = nullptr; }
  DeviceOnBench(const DeviceOnBench&) = delete;
  DeviceOnBench& operator=(const DeviceOnBench&) = delete;

  // "ok", or the error text.
  std::string Perform(const std::string& operation) {
    return OutcomeOf([&] { device.PerformOperation(operation); });
  }
  std::string Script(const std::string& name, const std::vector<host::ScriptValue>& arguments = {}) {
    return OutcomeOf([&] { (void)device.RunScriptFunction(name, arguments); });
  }

  std::vector<std::string> infos;
  std::vector<std::string> errors;

 private:
  template <typename Call>
  std::string OutcomeOf(Call call) {
    infos.clear();
    errors.clear();
    try {
      call();
    } catch (const host::PluginError& error) {
      EXPECT_EQ(bench.services.BrokenPromise(), "");
      return error.what();
    }
    EXPECT_EQ(bench.services.BrokenPromise(), "");
    return "ok";
  }

  Workbench& bench;
  host::PluginDevice device;
};

class OperationOnChipTest : public testing::TestWithParam<std::string> {
 protected:
  OperationOnChipTest() : bench(GetParam()), image(MakeImage(bench.device, 1000)) {
    EXPECT_EQ(Outcome(bench.Load(image.Segments(bench.device))), "ok");
    loaded = bench.Chip().State();
  }
  bool IsBlank(const Bytes& bytes) const {
    return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == 0xFF; });
  }

  Workbench bench;
  TestImage image;
  simulator::ChipState loaded;
};

TEST_P(OperationOnChipTest, EraseBlanksTheChipButForOtp) {
  DeviceOnBench device(bench);
  EXPECT_EQ(device.Perform("Erase"), "ok");
  const simulator::ChipState& chip = bench.Chip().State();
  EXPECT_TRUE(IsBlank(chip.main) && IsBlank(chip.ccfg) && IsBlank(chip.scfg));
  EXPECT_EQ(chip.otp, loaded.otp);
  EXPECT_FALSE(bench.services.IsConnected(host::Core::DebugPort));
}

TEST_P(OperationOnChipTest, ChipEraseRetainKeepsTheMarkedSectors) {
  DeviceOnBench device(bench);
  EXPECT_EQ(device.Perform("ChipEraseRetain"), "ok");
  Bytes expected(loaded.main.size(), 0xFF);
  for (std::uint32_t sector = 0; sector < expected.size() / 2048; ++sector)
    if (IsMarkedRetained(bench.device, sector))
      std::copy_n(loaded.main.begin() + sector * 2048, 2048, expected.begin() + sector * 2048);
  EXPECT_EQ(bench.Chip().State().main, expected);
  EXPECT_TRUE(IsBlank(bench.Chip().State().ccfg));
  // The configuration is gone with the first erase, and so is the mark.
  EXPECT_EQ(device.Perform("ChipEraseRetain"), "ok");
  EXPECT_THAT(device.infos,
              Contains("No sectors were retained during Chip Erase - only allowed if CCFG is valid"));
  EXPECT_TRUE(IsBlank(bench.Chip().State().main));
}

TEST_P(OperationOnChipTest, BlankCheckTellsWhatIsProgrammed) {
  constexpr char kCcfg[] = "Blank Check: Device CCFG sector is programmed";
  constexpr char kMain[] = "Blank Check: Device MAIN flash is programmed";
  constexpr char kBlank[] = "Blank Check: Device flash is blank";
  const struct {
    bool ccfg, main;
    std::vector<std::string> lines;
  } cases[] = {
      {false, false, {kBlank}}, {true, false, {kCcfg}}, {false, true, {kMain}}, {true, true, {kCcfg, kMain}}};
  DeviceOnBench device(bench);
  for (const auto& c : cases) {
    bench.Prepare([&](simulator::ChipState& state) {
      std::fill(state.main.begin(), state.main.end(), std::uint8_t{0xFF});
      std::fill(state.ccfg.begin(), state.ccfg.end(), std::uint8_t{0xFF});
      if (c.main) state.main.back() = 0x7F;
      if (c.ccfg) state.ccfg[0x760] = 0xFE;
    });
    const simulator::ChipState before = bench.Chip().State();
    EXPECT_EQ(device.Perform("BlankCheck"), "ok");
    EXPECT_EQ(device.infos, c.lines);
    EXPECT_TRUE(bench.Chip().State() == before);
  }
}

TEST_P(OperationOnChipTest, ReadDeviceInfoPublishesWhatTheChipIs) {
  DeviceOnBench device(bench);
  EXPECT_EQ(device.Perform("ReadDeviceInfo"), "ok");
  const std::uint32_t mainKb = bench.device.chip.mainSize / 1024;
  EXPECT_EQ(bench.settings.Get("DeviceInfoFlashSize"),
            std::to_string(mainKb) + " KB (" + std::to_string(mainKb / 2) + " sectors)");
  EXPECT_EQ(bench.settings.Get("DeviceInfoRAMSize"),
            std::to_string(bench.device.chip.ram.size / 1024) + " KB");
  EXPECT_NE(bench.settings.Get("DeviceInfoRevision"), "--");
}

TEST_P(OperationOnChipTest, WrongNamesTouchNothing) {
  DeviceOnBench device(bench);
  const std::uint64_t calls = bench.services.CallCount();
  EXPECT_EQ(device.Perform("erase"), "Unsupported Operation Code: 'erase'");
  EXPECT_EQ(device.Perform(""), "Unsupported Operation Code: ''");
  EXPECT_EQ(device.Script("enterSaci"), "ExecuteRuneFunction(): unknown function");
  EXPECT_EQ(device.Script("SaciAppResetDevice"), "Expected at least 1 parameters, but got 0");
  EXPECT_EQ(device.Script("EnsureAuthentication", {std::string("1")}),
            "Expected an integral value for parameter 1");
  EXPECT_EQ(bench.services.CallCount(), calls);
}

TEST_P(OperationOnChipTest, LeavesSaciOnlyInTheLifeCyclesThatLetGo) {
  const struct {
    std::uint8_t lifeCycle;
    const char* outcome;
    bool leaves;
  } cases[] = {{0, "ok", false},
               {1, "ok", false},
               {2, "ok", false},
               {3, "ok", true},
               {4, "ok", true},
               {5, "ok", true},
               {6, "ok", false},
               {7, "The target is in an unexpected state", false},
               {255, "The target is in an unexpected state", false}};
  DeviceOnBench device(bench);
  for (const auto& c : cases) {
    SCOPED_TRACE(int{c.lifeCycle});
    bench.Prepare([&](simulator::ChipState& state) { state.lifeCycle = c.lifeCycle; });
    ASSERT_EQ(device.Script("EnterSaci"), "ok");
    EXPECT_EQ(device.Script("ExitSaci"), c.outcome);
    const std::uint32_t bootStatus =
        bench.Chip().ReadRegister(simulator::Register::CfgApDeviceStatus) >> 8 & 0xFF;
    EXPECT_EQ(bootStatus == 0x20, !c.leaves);
    EXPECT_THAT(device.infos,
                Contains("Not exiting SACI. Life cycle state must be TESTFT, ENGRDEV or PRODDEV")
                    .Times(!c.leaves && c.lifeCycle < 7 ? 1U : 0U));
  }
}

TEST_P(OperationOnChipTest, ResetsTheApplicationOnlyFromSaci) {
  DeviceOnBench device(bench);
  ASSERT_EQ(device.Script("EnterSaci"), "ok");
  EXPECT_EQ(device.Script("SaciAppResetDevice", {1LL}), "ok");
  bench.probe.Sleep(10);
  EXPECT_EQ(device.Script("SaciAppResetDevice", {1LL}),
            "The target needs to be in SACI mode to send SACI app reset command..");
}

TEST_P(OperationOnChipTest, AResetThatMissesSaciIsNoticed) {
  DeviceOnBench device(bench);
  bench.Chip().AskedFaults().Add("reset-misses-saci:nth=1");
  EXPECT_EQ(device.Perform("Erase"), "Target did not enter SACI after pin reset");
  EXPECT_EQ(bench.Chip().State().main, loaded.main);
  EXPECT_EQ(device.Perform("Erase"), "ok");
}

INSTANTIATE_TEST_SUITE_P(AllDevices, OperationOnChipTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

class HsmOnChipTest : public testing::TestWithParam<std::string> {
 protected:
  HsmOnChipTest() : bench(GetParam()), device(bench) {}

  simulator::HsmKind Kind() const {
    return bench.device.chip.hsm == host::HsmForm::Whole ? simulator::HsmKind::Whole
                                                         : simulator::HsmKind::Records;
  }
  Bytes Image(std::uint8_t major, bool boots = true) const {
    return simulator::BuildHsmImage({major, 4, 7, boots, Noise(1000, 5)}, Kind(), 128);
  }
  std::string Update(const Bytes& image) {
    const TemporaryFile file(image);
    bench.Set("HsmImagePath", file.path);
    return device.Perform("ProgramHsmImage");
  }
  std::string Status() {
    EXPECT_EQ(device.Perform("ReadHsmUpdateStatus"), "ok");
    return bench.settings.Get("HsmUpdateStatus");
  }

  Workbench bench;
  DeviceOnBench device;
};

TEST_P(HsmOnChipTest, UpdatesToANewerVersion) {
  EXPECT_EQ(Update(Image(2)), "ok");
  EXPECT_EQ(bench.settings.Get("HsmSysInfo"), "FW Version: 2.4.7");
  EXPECT_EQ(Status(), "Requested update was successful.");
  EXPECT_EQ(device.Perform("ReadHsmSysInfo"), "ok");
  EXPECT_THAT(device.infos, ElementsAre("HSM Information: FW Version: 2.4.7"));
}

TEST_P(HsmOnChipTest, RefusesAnOlderVersionAndKeepsTheNewer) {
  ASSERT_EQ(Update(Image(3)), "ok");
  EXPECT_EQ(Update(Image(2)), "Incorrect HSM FW version");
  EXPECT_EQ(device.Perform("ReadHsmSysInfo"), "ok");
  EXPECT_EQ(bench.settings.Get("HsmSysInfo"), "FW Version: 3.4.7");
}

TEST_P(HsmOnChipTest, RefusesADamagedImage) {
  Bytes image = Image(2);
  image[image.size() - 20] ^= 4;
  EXPECT_EQ(Update(image), "HSM FW image failed to be verified");
  EXPECT_EQ(Status(), "The target image failed to verify.");
  Bytes foreign = Image(2);
  foreign[0] ^= 1;
  EXPECT_EQ(Update(foreign), "HSM FW image header is invalid");
  EXPECT_EQ(Update(Image(2)), "ok");
}

TEST_P(HsmOnChipTest, TellsThatTheNewFirmwareDoesNotStart) {
  EXPECT_EQ(Update(Image(2, false)), "HSM FW has been updated but HSM failed to boot");
  EXPECT_EQ(device.Perform("ReadHsmSysInfo"),
            "HSM failed to boot. Make sure to program a valid HSM image under the \"HSM Image\" section.");
  EXPECT_EQ(bench.settings.Get("HsmSysInfo"), "--");
}

TEST_P(HsmOnChipTest, RefusesFilesThatCannotBeAnImageBeforeTheChipSeesThem) {
  Bytes image = Image(2);
  image.resize(image.size() - 1);
  EXPECT_EQ(Update(image), "The size of HSM image to be programmed must be divisible by 4");
  bench.Set("HsmImagePath", "/nonexistent/image");
  EXPECT_EQ(device.Perform("ProgramHsmImage"), "Failed to read /nonexistent/image");
  bench.Set("HsmImagePath", "");
  EXPECT_EQ(device.Perform("ProgramHsmImage"), "Error, empty file name!");
  EXPECT_THAT(bench.services.Commands(), Contains(33).Times(0));
}

TEST_P(HsmOnChipTest, ShowsEveryUpdateStatus) {
  const char* const texts[] = {"Regular boot w/o a new image.",
                               "Requested update was successful.",
                               "ROM panic mode due to fault injection.",
                               "Invalid image detected.",
                               "The target image failed to verify.",
                               "Requested image update process failed.",
                               "SCFG configuration is invalid.",
                               "HSM FW failed to boot.",
                               "Unknown status! 8"};
  for (std::size_t status = 0; status < std::size(texts); ++status) {
    bench.Chip().AskedFaults() = {};
    bench.Chip().AskedFaults().Add("hsm:status=" + std::to_string(status));
    EXPECT_EQ(Status(), texts[status]);
  }
}

std::vector<std::string> DevicesWithHsm(bool have) {
  std::vector<std::string> names = DeviceNames();
  std::erase_if(names, [&](const std::string& name) {
    return (Workbench(name).device.chip.hsm != host::HsmForm::None) != have;
  });
  return names;
}
INSTANTIATE_TEST_SUITE_P(Devices, HsmOnChipTest, testing::ValuesIn(DevicesWithHsm(true)), DeviceCaseName);

class NoHsmOnChipTest : public testing::TestWithParam<std::string> {};

TEST_P(NoHsmOnChipTest, RefusesHsmOperationsBeforeAnythingElse) {
  Workbench bench(GetParam());
  DeviceOnBench device(bench);
  for (const char* operation : {"ProgramHsmImage", "ReadHsmSysInfo", "ReadHsmUpdateStatus"})
    EXPECT_EQ(device.Perform(operation),
              std::string("This operation is only supported for Corvel devices revision E or higher: '") +
                  operation + "'");
  EXPECT_THAT(bench.services.Commands(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Devices, NoHsmOnChipTest, testing::ValuesIn(DevicesWithHsm(false)), DeviceCaseName);

}  // namespace
