#include "host/check/CheckBench.h"

#include <fmt/format.h>

#include <exception>

#include "host/check/ExpectedChip.h"
#include "host/device/Settings.h"
#include "host/plan/ImagePlan.h"

namespace host {

CheckBench::CheckBench(const CheckPart& part, CheckReport& checkReport)
    : report(checkReport),
      device(part.device),
      library(part.plugin),
      settings(DefaultSettings(part.device)),
      probe(part.device, {}) {}

bool CheckBench::Set(std::string_view assignments) {
  while (!assignments.empty()) {
    const std::string_view assignment = assignments.substr(0, assignments.find(';'));
    assignments.remove_prefix(std::min(assignment.size() + 1, assignments.size()));
    const std::size_t equals = assignment.find('=');
    if (device.Find(assignment.substr(0, equals)) == nullptr) return false;
    settings.Set(assignment.substr(0, equals), assignment.substr(equals + 1));
  }
  return true;
}

LoadPlan CheckBench::Plan(const std::vector<ImageSegment>& image) const {
  const std::vector<ImageFile> images{{"image", ImageFormat::Raw, image}};
  return PlanLoad(images, device.map, PluginCutsUnder(settings));
}

void CheckBench::PutChip(const simulator::ChipState& state) {
  (void)probe.View();
  probe.Chip().AskedFaults() = {};
  probe.Chip().Restore(state);
}

const simulator::ChipState& CheckBench::Chip() {
  (void)probe.View();
  return probe.Chip().State();
}

CheckedDevice::CheckedDevice(CheckBench& checkBench)
    : services(checkBench.probe, checkBench.settings),
      bench(checkBench),
      rules({.ccfg = bench.device.map.ccfg.size,
             .userRecord = bench.device.map.userRecord.size,
             .scfg = bench.device.map.scfg.size}) {
  services.AddObserver(rules);
  services.onMessage = [this](bool isError, const std::string& text) {
    (isError ? errors : infos).push_back(text);
  };
  services.ConnectDebugPort();
}

CheckedDevice::~CheckedDevice() {
  (void)Call("Delete", [&] { device.reset(); });
}

CheckedDevice::Failure CheckedDevice::Create() {
  return Call("creation and Initialize", [&] {
    if (!device) device.emplace(bench.library, services, bench.device.name);
    if (!isInitialized) operations = device->Initialize();
    isInitialized = true;
  });
}

CheckedDevice::Failure CheckedDevice::Load(const LoadPlan& plan) {
  if (Failure failure = Create()) return failure;
  Failure failure = Call("ResetSettings(LoadStart)", [&] { device->StartLoad(); });
  for (const ImageBlock& block : plan.blocks)
    if (!failure)
      failure =
          Call(fmt::format("WriteDataToFlash of {} bytes at 0x{:08x}", block.data.size(), block.address),
               [&] { device->WriteBlock(block.address, block.data); });
  if (!failure) failure = Call("ResetSettings(LoadEnd)", [&] { device->EndLoad(); });
  return failure;
}

CheckedDevice::Failure CheckedDevice::Perform(const std::string& operation) {
  if (Failure failure = Create()) return failure;
  return Call(fmt::format("PerformOperation(\"{}\")", operation),
              [&] { device->PerformOperation(operation); });
}

CheckedDevice::Failure CheckedDevice::Run(const std::string& function,
                                          const std::vector<ScriptValue>& arguments) {
  if (Failure failure = Create()) return failure;
  return Call(fmt::format("ExecuteRuneFunction(\"{}\")", function),
              [&] { (void)device->RunScriptFunction(function, arguments); });
}

void CheckedDevice::LoadWell(const LoadPlan& plan) {
  simulator::ChipState expected = ChipAfterLoad(bench.Chip(), plan, bench.device, bench.settings);
  errors.clear();
  if (const Failure failure = Load(plan))
    return bench.report.Find(fmt::format("the load fails: \"{}\"", *failure));
  for (const std::string& error : errors)
    bench.report.Find(fmt::format("the load reports an error: \"{}\"", error));
  expected.hsm = bench.Chip().hsm;  // an update may have come to its end meanwhile
  const std::string difference = Difference(bench.Chip(), expected);
  if (!difference.empty())
    bench.report.Find(fmt::format("the load succeeds, and the chip is not as it should be: {}", difference));
}

CheckedDevice::Failure CheckedDevice::Call(std::string_view step, const std::function<void()>& action) {
  bench.report.Step(step);
  Failure failure;
  try {
    action();
  } catch (const PluginError& error) {
    failure = error.what();
  } catch (const std::exception& error) {
    failure = fmt::format("{} throws \"{}\" at the host", step, error.what());
    bench.report.Find(*failure);
  }
  TellBrokenRules();
  return failure;
}

void CheckedDevice::TellBrokenRules() {
  for (; rulesTold < rules.Findings().size(); ++rulesTold) {
    const CallFinding& finding = rules.Findings()[rulesTold];
    bench.report.Find(
        fmt::format("breaks the rule \"{}\" in host call {}: {}", finding.rule, finding.call, finding.what));
  }
}

}  // namespace host
