#include "SweepBench.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>

#include "simulator/HsmImage.h"

namespace {

CheckImage SmallImage(const host::DeviceDescription& device) {
  CheckImage image(device.chip, 1100, CheckImage::Extent::Small);
  if (device.Find("DebugPassword") != nullptr) image.RequirePassword();
  // Right from the start, so that no setting has to put them right.
  image.ccfg = CcfgWithCrcs(device.chip, image.ccfg);
  image.scfg = ScfgWithCrc(device.chip, image.scfg);
  return image;
}

}  // namespace

Attempt::Attempt(Workbench& workbench)
    : services(workbench.probe, workbench.settings, workbench.device.map), bench(workbench) {
  services.onMessage = [this](bool isError, const std::string& text) {
    (isError ? errors : infos).push_back(text);
  };
}

void Attempt::Create() {
  if (!device) device.emplace(Plugin(), services, bench.device.name);
  if (!initialized) (void)device->Initialize();
  initialized = true;
}

void Attempt::Load(const host::LoadPlan& plan) {
  RunLoad(plan, "0");
}

void Attempt::Verify(const host::LoadPlan& plan) {
  RunLoad(plan, "1");
}

void Attempt::RunLoad(const host::LoadPlan& plan, const char* verifiesOnly) {
  bench.Set("ImageVerificationSetting", verifiesOnly);
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

void ExpectSwept(const std::string& device, const char* what, unsigned places, unsigned least) {
  std::printf("[ sweep ] %s: %u %s%s\n", device.c_str(), places, what, kSampled ? ", sampled" : "");
  EXPECT_GE(places, kSampled ? 1 : least) << "a sweep has lost places; if that is meant, say so here";
}

SweepBench::SweepBench(const SweepCase& what)
    : bench(what.device, what.readAhead), image(SmallImage(bench.device)) {
  using simulator::HsmKind;
  bench.SetErase(kRetainMain);
  if (bench.device.Find("DebugPassword") != nullptr) bench.Set("DebugPassword", CheckImage::kPassword);
  if (const host::HsmForm form = bench.device.chip.hsm; form != host::HsmForm::None)
    bench.ProvideHsmImage(
        simulator::BuildHsmImage({2, 0, 0, true, Noise(200, 4)},
                                 form == host::HsmForm::Whole ? HsmKind::Whole : HsmKind::Records, 64));
  plan = bench.Plan(image.All());
  EXPECT_EQ(Outcome(bench.Load(image.All())), "ok");
  start = bench.State();
  start.main = Noise(start.main.size(), 5);
  start.ram.assign(start.ram.size(), 0);
}

std::vector<Action> SweepBench::Actions() const {
  const auto create = [](Attempt& attempt) { attempt.Create(); };
  const auto enterSaci = [](Attempt& attempt) { attempt.Script("EnterSaci"); };
  const auto load = [this](Attempt& attempt) { attempt.Load(plan); };
  const auto loadWithoutRetaining = [load](Attempt& attempt) {
    attempt.Perform("Erase");
    load(attempt);
  };
  const auto script = [](const std::string& name, long long argument) {
    return [=](Attempt& attempt) { attempt.Script(name, {argument}); };
  };
  const host::CoveredRange record = bench.device.chip.userRecord;
  const host::LoadPlan recordAlone = bench.Plan(
      {{image.chip.ccfg.base + record.offset,
        {image.ccfg.begin() + record.offset, image.ccfg.begin() + record.offset + record.length}}});
  std::vector<Action> actions = {
      {"load", [](Attempt&) {}, load},
      {"user record", create, [=](Attempt& attempt) { attempt.Load(recordAlone); }},
      {"verification", loadWithoutRetaining, [this](Attempt& attempt) { attempt.Verify(plan); }},
      {"EnterSaci", create, enterSaci},
      {"ExitSaci", enterSaci, [](Attempt& attempt) { attempt.Script("ExitSaci"); }},
      {"EnsureAuthentication", create, script("EnsureAuthentication", 1)},
      {"EnsureAuthentication in SACI", enterSaci, script("EnsureAuthentication", 1)},
      {"SaciAppResetDevice without answer", enterSaci, script("SaciAppResetDevice", 0)},
      {"SaciAppResetDevice", enterSaci, script("SaciAppResetDevice", 1)},
  };
  std::vector<std::string> operations = {"Erase", "ChipEraseRetain", "BlankCheck", "ReadDeviceInfo"};
  if (bench.device.chip.hsm != host::HsmForm::None)
    operations.insert(operations.end(), {"ProgramHsmImage", "ReadHsmSysInfo", "ReadHsmUpdateStatus"});
  for (const std::string& operation : operations)
    actions.push_back({operation, create, [operation](Attempt& attempt) { attempt.Perform(operation); }});
  return actions;
}

void SweepBench::PutChipBack() {
  bench.Chip().AskedFaults() = {};
  bench.Chip().Restore(start);
}

void SweepBench::ExpectNextLoadRecovers(Attempt& attempt) {
  bench.Set("ImageVerificationSetting", "0");
  simulator::ChipState expected = host::ChipAfterLoad(bench.State(), plan, bench.device, bench.settings);
  attempt.errors.clear();
  EXPECT_EQ(ErrorOf([&] { attempt.Load(plan); }), "ok");
  EXPECT_THAT(attempt.errors, testing::IsEmpty());
  expected.hsm = bench.State().hsm;  // an update may have come to its end meanwhile
  EXPECT_EQ(Difference(bench.State(), expected), "");
}
