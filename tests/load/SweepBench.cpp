#include "SweepBench.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "simulator/HsmImage.h"

namespace {

constexpr std::uint32_t kSectorSize = 2048;

// Few sectors, so that a load is short, in four blocks: one of two sectors of which the second is retained,
// one of two sectors, a piece of a sector, and one that is retained whole.
TestImage SmallImage(const host::DeviceDescription& device) {
  TestImage image = MakeImage(device, 1100);
  image.main = {{0, Noise(2 * kSectorSize, 1)},
                {4 * kSectorSize, Noise(2 * kSectorSize, 2)},
                {7 * kSectorSize + 9, Noise(700, 3)},
                {40 * kSectorSize, Noise(4, 4)}};
  image.otp.data.resize(64);
  if (device.Find("DebugPassword") != nullptr) RequirePassword(device, image);
  // Right from the start, so that no setting has to put them right.
  image.ccfg = CcfgWithCrcs(device, image.ccfg);
  image.scfg = ScfgWithCrc(device, image.scfg);
  return image;
}

Bytes HsmImageFor(const host::DeviceDescription& device) {
  switch (device.chip.hsm) {
    case host::HsmForm::None: return {};
    case host::HsmForm::Whole:
      return simulator::BuildHsmImage({2, 0, 0, true, Noise(200, 4)}, simulator::HsmKind::Whole);
    case host::HsmForm::Records:
      return simulator::BuildHsmImage({2, 0, 0, true, Noise(200, 4)}, simulator::HsmKind::Records, 64);
  }
  return {};
}

}  // namespace

Attempt::Attempt(Workbench& workbench, const host::LoadPlan& loadPlan)
    : services(workbench.probe, workbench.settings), bench(workbench), plan(loadPlan) {
  services.ConnectDebugPort();
  services.onMessage = [this](bool isError, const std::string& text) {
    (isError ? errors : infos).push_back(text);
  };
}

void Attempt::Create() {
  if (!device) device.emplace(Plugin(), services, bench.device.name);
  if (!initialized) (void)device->Initialize();
  initialized = true;
}

void Attempt::Load() {
  bench.Set("ImageVerificationSetting", "0");
  RunLoad();
}

void Attempt::Verify() {
  bench.Set("ImageVerificationSetting", "1");
  RunLoad();
}

void Attempt::RunLoad() {
  Create();
  device->StartLoad();
  for (const host::ImageBlock& block : plan.blocks) device->WriteBlock(block.address, block.data);
  device->EndLoad();
}

void Attempt::Perform(const std::string& operation) {
  Create();
  device->PerformOperation(operation);
}

void Attempt::Script(const std::string& function, const std::vector<host::ScriptValue>& arguments) {
  Create();
  (void)device->RunScriptFunction(function, arguments);
}

SweepBench::SweepBench(const std::string& deviceName) : bench(deviceName), image(SmallImage(bench.device)) {
  bench.SetErase(Erase::RetainMain);
  if (bench.device.Find("DebugPassword") != nullptr) bench.Set("DebugPassword", kPassword);
  if (bench.device.Find("HsmImagePath") != nullptr) {
    hsmImage = std::make_unique<TemporaryFile>(HsmImageFor(bench.device));
    bench.Set("HsmImagePath", hsmImage->path);
  }
  plan = bench.Plan(image.Segments(bench.device));
  EXPECT_EQ(Outcome(bench.Load(image.Segments(bench.device))), "ok");
  start = bench.Chip().State();
  start.main = Noise(start.main.size(), 5);
  start.ram.assign(start.ram.size(), 0);
}

std::vector<Action> SweepBench::Actions() const {
  const auto create = [](Attempt& attempt) { attempt.Create(); };
  const auto enterSaci = [](Attempt& attempt) { attempt.Script("EnterSaci"); };
  const auto load = [](Attempt& attempt) { attempt.Load(); };
  const auto loadWithoutRetaining = [](Attempt& attempt) {
    attempt.Perform("Erase");
    attempt.Load();
  };
  const auto script = [](const std::string& name, long long argument) {
    return [=](Attempt& attempt) { attempt.Script(name, {argument}); };
  };
  std::vector<Action> actions = {
      {"load", [](Attempt&) {}, load},
      {"verification", loadWithoutRetaining, [](Attempt& attempt) { attempt.Verify(); }},
      {"EnterSaci", create, enterSaci},
      {"ExitSaci", enterSaci, [](Attempt& attempt) { attempt.Script("ExitSaci"); }},
      {"EnsureAuthentication", create, script("EnsureAuthentication", 1)},
      {"EnsureAuthentication in SACI", enterSaci, script("EnsureAuthentication", 1)},
      {"SaciAppResetDevice without answer", enterSaci, script("SaciAppResetDevice", 0)},
      {"SaciAppResetDevice", enterSaci, script("SaciAppResetDevice", 1)},
  };
  std::vector<std::string> operations = {"Erase", "ChipEraseRetain", "BlankCheck", "ReadDeviceInfo"};
  if (hsmImage)
    operations.insert(operations.end(), {"ProgramHsmImage", "ReadHsmSysInfo", "ReadHsmUpdateStatus"});
  for (const std::string& operation : operations)
    actions.push_back({operation, create, [operation](Attempt& attempt) { attempt.Perform(operation); }});
  return actions;
}

void SweepBench::PutChipBack() {
  bench.Chip().AskedFaults() = {};
  bench.Chip().Restore(start);
}

bool SweepBench::IsCcfgValid() {
  const Bytes& ccfg = bench.Chip().State().ccfg;
  return WithoutUserRecord(bench.device, CcfgWithCrcs(bench.device, ccfg)) ==
         WithoutUserRecord(bench.device, ccfg);
}

void SweepBench::ExpectNextLoadRecovers(Attempt& attempt) {
  // A chip whose CCFG is not valid retains nothing.
  const bool retains = IsCcfgValid();
  Bytes main = Laid(image.main, 0, start.main.size(), 0xFF);
  for (std::uint32_t sector = 0; retains && sector < main.size() / kSectorSize; ++sector)
    if (IsMarkedRetained(bench.device, sector))
      std::copy_n(bench.Chip().State().main.begin() + sector * kSectorSize, kSectorSize,
                  main.begin() + sector * kSectorSize);

  attempt.errors.clear();
  EXPECT_EQ(ErrorOf([&] { attempt.Load(); }).value_or("ok"), "ok");
  EXPECT_THAT(attempt.errors, testing::IsEmpty());
  EXPECT_EQ(attempt.services.BrokenPromise(), "");

  const simulator::ChipState& chip = bench.Chip().State();
  const host::AddressRange otp = bench.device.chip.otp;
  EXPECT_TRUE(chip.main == main) << "MAIN is wrong";
  EXPECT_TRUE(chip.ccfg == WithoutUserRecord(bench.device, image.ccfg)) << "CCFG is wrong";
  EXPECT_TRUE(chip.scfg == image.scfg) << "SCFG is wrong";
  EXPECT_TRUE(otp.size == 0 || chip.otp == Laid({image.otp}, otp.base, otp.size, 0xFF)) << "OTP is wrong";
  EXPECT_TRUE(chip.ram == Laid(image.ram, bench.device.chip.ram.base, chip.ram.size(), 0)) << "RAM is wrong";
}

std::optional<std::string> ErrorOf(const std::function<void()>& call) {
  try {
    call();
    return std::nullopt;
  } catch (const host::PluginError& error) {
    return error.what();
  }
}
