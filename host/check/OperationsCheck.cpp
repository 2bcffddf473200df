#include <fmt/format.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>

#include "host/check/CheckBench.h"
#include "host/check/ExpectedChip.h"
#include "host/device/Settings.h"
#include "host/plugin/PluginTexts.h"
#include "simulator/HsmImage.h"

namespace host {

namespace {

constexpr std::uint32_t kNewFirmware = 0x020000;

// One operation or script function after another, each on a device object of its own.
class Operations {
 public:
  Operations(const CheckPart& checkPart, CheckReport& checkReport)
      : part(checkPart), report(checkReport), bench(checkPart, checkReport), blank(bench.Chip()) {
    const LoadPlan all = bench.Plan(CheckImage(part.device.chip, 700).All());
    used = ChipBeforeLoad(blank, all, part.device.chip, bench.settings);
    ProvideHsmImage();
  }

  void CheckErase();
  void CheckBlankCheck();
  void CheckIdentification();
  void CheckHsm();
  void CheckScriptFunctions();

 private:
  bool HasHsm() const { return part.device.chip.hsm != HsmForm::None; }
  // Performs the operation on the present chip, and tells it unless it succeeds.
  std::vector<std::string> Perform(const std::string& operation);
  void Expect(const simulator::ChipState& expected);
  void Require(bool holds, const std::string& what) {
    if (!holds) report.Find(what);
  }
  void ProvideHsmImage();
  void At(const std::string& what) {
    report.At(fmt::format("{}, {}", part.device.name, what));
    report.Count();
  }

  const CheckPart& part;
  CheckReport& report;
  CheckBench bench;
  const simulator::ChipState blank;
  simulator::ChipState used;
};

void Operations::ProvideHsmImage() {
  using simulator::HsmKind;
  if (!HasHsm()) return;
  const HsmKind kind = part.device.chip.hsm == HsmForm::Whole ? HsmKind::Whole : HsmKind::Records;
  const std::vector<std::uint8_t> image = simulator::BuildHsmImage({2, 0, 0, true, Noise(200, 4)}, kind, 64);
  const int file = memfd_create("hsm-image", MFD_CLOEXEC);  // ends with the process
  if (write(file, image.data(), image.size()) != static_cast<ssize_t>(image.size()))
    throw std::runtime_error("no memory for an HSM image");
  bench.settings.Set("HsmImagePath", fmt::format("/proc/self/fd/{}", file));
}

std::vector<std::string> Operations::Perform(const std::string& operation) {
  CheckedDevice device(bench);
  if (const auto failure = device.Perform(operation)) report.Find(fmt::format("fails: \"{}\"", *failure));
  const auto& offered = device.operations;
  const bool isOffered = std::find(offered.begin(), offered.end(), operation) != offered.end();
  Require(isOffered || operation == "ReadDeviceInfo", "is not among the operations that Initialize tells");
  return device.infos;
}

void Operations::Expect(const simulator::ChipState& expected) {
  const std::string difference = Difference(bench.Chip(), expected);
  Require(difference.empty(), fmt::format("leaves the chip otherwise than it should: {}", difference));
}

void Operations::CheckErase() {
  for (const bool keepsMarked : {false, true}) {
    const std::string operation = keepsMarked ? "ChipEraseRetain" : "Erase";
    At(operation);
    bench.PutChip(used);
    (void)Perform(operation);
    Expect(ChipAfterErase(used, part.device.chip, keepsMarked ? MarkedSectors::Kept : MarkedSectors::Erased));
  }
}

void Operations::CheckBlankCheck() {
  const simulator::ChipState* const chips[] = {&blank, &used};
  for (const simulator::ChipState* const chip : chips) {
    const bool isBlank = chip == &blank;
    At(isBlank ? "BlankCheck of a blank chip" : "BlankCheck of a chip in use");
    bench.PutChip(*chip);
    const std::vector<std::string> infos = Perform("BlankCheck");
    const bool saysBlank = std::find(infos.begin(), infos.end(), kFlashIsBlank) != infos.end();
    Require(saysBlank == isBlank, saysBlank ? "says that it is blank" : "does not say that it is blank");
    Expect(*chip);
  }
}

void Operations::CheckIdentification() {
  At("ReadDeviceInfo");
  bench.PutChip(used);
  (void)Perform("ReadDeviceInfo");
  const std::pair<const char*, std::uint32_t> sizes[] = {{"DeviceInfoFlashSize", part.device.chip.mainSize},
                                                         {"DeviceInfoRAMSize", part.device.chip.ram.size}};
  for (const auto& [property, size] : sizes) {
    const std::string told = bench.settings.Get(property);
    Require(told.starts_with(fmt::format("{} KB", size / 1024)),
            fmt::format("{} is \"{}\" of a chip with {} KB", property, told, size / 1024));
  }
  Expect(used);
}

void Operations::CheckHsm() {
  const std::string operations[] = {"ReadHsmSysInfo", "ProgramHsmImage", "ReadHsmUpdateStatus"};
  bench.PutChip(used);
  for (const std::string& operation : operations) {
    At(operation);
    if (HasHsm()) {
      (void)Perform(operation);
    } else {
      CheckedDevice device(bench);
      Require(device.Perform(operation).has_value(), "succeeds without a security module");
    }
  }
  if (!HasHsm()) return Expect(used);
  Require(bench.Chip().hsm.version == kNewFirmware, "the firmware is not the new one");
  const PropertyStore untold = DefaultSettings(part.device);
  for (const char* const told : {"HsmSysInfo", "HsmUpdateStatus"})
    Require(bench.settings.Get(told) != untold.Get(told), fmt::format("Read{} tells nothing", told));
}

void Operations::CheckScriptFunctions() {
  struct Call {
    const char* function;
    std::vector<ScriptValue> arguments;
    bool succeeds = true;
  };
  const Call calls[] = {{"EnsureAuthentication", {}, false},
                        {"EnsureAuthentication", {"one"}, false},
                        {"EnterSaci", {}},
                        {"EnsureAuthentication", {1LL}},
                        {"EnterSaci", {}},
                        {"SaciAppResetDevice", {1LL}},
                        {"EnterSaci", {}},
                        {"ExitSaci", {}}};
  bench.PutChip(used);
  CheckedDevice device(bench);
  for (const Call& call : calls) {
    At(call.function);
    const CheckedDevice::Failure failure = device.Run(call.function, call.arguments);
    if (failure && call.succeeds) report.Find(fmt::format("fails: \"{}\"", *failure));
    Require(failure || !call.succeeds || device.errors.empty(), "succeeds with an error message");
    Require(failure.has_value() || call.succeeds, "succeeds with arguments that are none");
  }
  Expect(used);
}

}  // namespace

void CheckOperations(const CheckPart& part, CheckReport& report) {
  Operations operations(part, report);
  operations.CheckErase();
  operations.CheckBlankCheck();
  operations.CheckIdentification();
  operations.CheckHsm();
  operations.CheckScriptFunctions();
}

}  // namespace host
