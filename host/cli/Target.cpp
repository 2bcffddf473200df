#include "host/cli/Target.h"

#include <fmt/format.h>

#include "host/cli/Locations.h"
#include "host/device/InputError.h"
#include "host/device/Passwords.h"
#include "host/device/Settings.h"
#include "host/plugin/HostFault.h"

namespace host::cli {

namespace {

SimulatedChipOptions ChipOptions(const TargetOptions& options) {
  SimulatedChipOptions chip;
  if (!options.chip.empty()) chip.file = options.chip;
  chip.timing = options.probe;
  chip.lifeCycle = options.lifeCycle;
  for (const std::string& fault : options.faults)
    if (!IsHostFault(fault)) chip.faults.push_back(fault);
  return chip;
}

}  // namespace

DeviceDescription ReadDevice(const TargetOptions& options) {
  if (!options.device.empty()) return ReadDeviceDescription(FindDeviceFile(options.device, DevicesFolder()));
  if (!options.chip.empty() && std::filesystem::exists(options.chip))
    return ReadDeviceDescription(FindDeviceFile(SimulatedProbe::DeviceOfFile(options.chip), DevicesFolder()));
  throw InputError("which device? Give --device (see 'tovik-flash devices')");
}

Target::Target(const Options& options)
    : device(ReadDevice(options.target)),
      settings(DefaultSettings(device)),
      probe(device, ChipOptions(options.target)),
      library(options.target.plugin.empty() ? DefaultPlugin() : std::filesystem::path(options.target.plugin)),
      services(probe, settings) {
  ApplySettings(options.target);
  if (options.verbose) settings.Set("FlashVerboseMode", "1");
  for (const std::string& fault : options.target.faults)
    if (IsHostFault(fault)) services.Fail(ParseHostFault(fault));
  if (options.target.trace.empty()) return;

  trace.emplace(options.target.trace);
  const DebugPassword password = PasswordInUse(settings);
  trace->Hide(password.setting);
  trace->Hide(password.bytes);
  services.TraceTo(&*trace);
}

void Target::ApplySettings(const TargetOptions& options) {
  for (const std::string& given : options.settings)
    ApplySetting(device, settings, given, options.allowUnknownSettings ? Beyond::Allowed : Beyond::Refused);
  RequirePasswordInItsFormat(settings);
}

}  // namespace host::cli
