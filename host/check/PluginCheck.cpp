#include "host/check/PluginCheck.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <thread>

#include "host/check/CheckProcess.h"
#include "host/check/Exports.h"
#include "host/device/InputError.h"

namespace host {

namespace {

using With = Check::With;

const Check s_checks[] = {
    {"exports", "symbols", "exports CreateFlashDevice4 and nothing else, and can be loaded", With::Library,
     CheckExports},
    {"contract", "calls", "fills every slot, writes results on success only, tells its version",
     With::EachDevice, CheckContract},
    {"loads", "loads", "loads the chip as images and settings say, and tells what differs", With::EachDevice,
     CheckLoads},
    {"words", "words", "sends nothing that nobody has set", With::EachDevice, CheckWords},
    {"memory", "loads", "gives back memory, files and threads", With::EachDevice, CheckMemory},
    {"failed-calls", "failures", "passes on the failure of any host call, and loads again",
     With::OneDeviceWhole, CheckFailedCalls},
    {"chip-faults", "faults", "tells what the chip refuses or gets wrong, and loads again", With::EachDevice,
     CheckChipFaults},
    {"operations", "calls", "identifies the chip, erases it, updates its HSM, runs script functions",
     With::EachDevice, CheckOperations},
};

// Without these there is no telling what the others find: nothing can be called that is not there, and where
// a load does not do what it should a disturbed one says nothing.
constexpr std::string_view s_needed[] = {"exports", "contract", "loads"};

bool IsNeeded(const Check& check) {
  return std::find(std::begin(s_needed), std::end(s_needed), check.name) != std::end(s_needed);
}

std::vector<CheckPart> PartsOf(const Check& check, const PluginCheckRequest& request) {
  constexpr unsigned kSample = 8;
  if (check.with == With::Library) return {{request.plugin, request.devices.front()}};
  std::vector<CheckPart> parts;
  for (const DeviceDescription& device : request.devices) {
    if (check.with == With::EachDevice) {
      parts.push_back({request.plugin, device});
    } else if (&device != &request.devices.front()) {
      parts.push_back({request.plugin, device, 0, kSample});
    } else {
      for (const unsigned first : {0U, 1U}) parts.push_back({request.plugin, device, first, 2});
    }
  }
  return parts;
}

// Runs the parts, so many at a time, and takes down what they find in the order of the parts.
void Run(const Check& check, const PluginCheckRequest& request, CheckResult& result) {
  constexpr std::chrono::milliseconds kLook{2};
  const std::vector<CheckPart> parts = PartsOf(check, request);
  const std::size_t atATime = std::max(1U, std::thread::hardware_concurrency());
  std::vector<std::unique_ptr<CheckProcess>> processes;
  std::size_t ended = 0;
  while (ended < parts.size()) {
    ended = 0;
    for (const auto& process : processes) ended += process->HasEnded(request.patience) ? 1U : 0U;
    if (processes.size() < parts.size() && processes.size() - ended < atATime)
      processes.push_back(std::make_unique<CheckProcess>(
          [&, part = processes.size()](CheckReport& report) { check.run(parts[part], report); }));
    else
      std::this_thread::sleep_for(kLook);
  }
  for (const auto& process : processes) {
    result.count += process->Count();
    for (CheckFinding& finding : process->Findings())
      if (std::find(result.findings.begin(), result.findings.end(), finding) == result.findings.end())
        result.findings.push_back(std::move(finding));
  }
  if (result.count == 0 && result.findings.empty()) result.findings.push_back({"", "nothing could be tried"});
}

bool IsAskedFor(const Check& check, const PluginCheckRequest& request) {
  return request.only.empty() ||
         std::find(request.only.begin(), request.only.end(), check.name) != request.only.end();
}

void RequireKnownChecks(const PluginCheckRequest& request) {
  for (const std::string& name : request.only)
    if (std::none_of(std::begin(s_checks), std::end(s_checks),
                     [&](const Check& check) { return check.name == name; }))
      throw InputError(fmt::format("there is no check \"{}\" (see --help)", name));
}

}  // namespace

std::span<const Check> AllChecks() {
  return s_checks;
}

std::vector<CheckResult> CheckPlugin(const PluginCheckRequest& request,
                                     const std::function<void(const CheckResult&)>& sink) {
  RequireKnownChecks(request);
  (void)ExportsOf(request.plugin);
  std::vector<CheckResult> results;
  bool goesOn = true;
  for (const Check& check : s_checks) {
    if (!IsAskedFor(check, request)) continue;
    CheckResult result{&check, goesOn, 0, {}};
    if (goesOn) Run(check, request, result);
    if (IsNeeded(check)) goesOn = result.HasPassed();
    sink(result);
    results.push_back(std::move(result));
  }
  return results;
}

}  // namespace host
