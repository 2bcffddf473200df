#include "host/cli/Target.h"

#include <fmt/format.h>

#include "host/cli/Locations.h"
#include "host/cli/Password.h"
#include "host/device/InputError.h"
#include "host/device/Passwords.h"
#include "host/device/Settings.h"

namespace host::cli {

SimulatedChipOptions ChipOptions(const TargetOptions& options, MissingChip missing) {
  SimulatedChipOptions chip;
  if (!options.chip.empty()) chip.file = options.chip;
  chip.missing = missing;
  if (options.lifeCycle) chip.lifeCycle = static_cast<std::uint8_t>(*options.lifeCycle);
  chip.inRealTime = options.inRealTime;
  for (const std::string& fault : options.faults)
    if (!IsHostFault(fault)) chip.faults.push_back(fault);
  return chip;
}

DeviceDescription ReadDevice(const TargetOptions& options) {
  if (!options.device.empty()) return ReadDeviceDescription(FindDeviceFile(options.device, DevicesFolder()));
  if (!options.chip.empty() && std::filesystem::exists(options.chip))
    return ReadDeviceDescription(FindDeviceFile(DeviceOfChipFile(options.chip), DevicesFolder()));
  throw InputError("which device? Give --device (see 'tovik-flash devices')");
}

SessionRequest Request(const TargetOptions& options, MissingChip missing) {
  if (missing == MissingChip::Refuse && !options.chip.empty() && !std::filesystem::exists(options.chip))
    throw InputError(fmt::format("chip file {}: no such file", options.chip));
  DeviceDescription device = ReadDevice(options);
  PropertyStore settings = DefaultSettings(device);
  for (const std::string& given : options.settings)
    ApplySetting(device, settings, given, options.allowUnknownSettings ? Beyond::Allowed : Beyond::Refused);
  ApplyPassword(options.password, device, settings);
  RequirePasswordInItsFormat(settings);
  if (options.verbose) settings.Set("FlashVerboseMode", "1");

  SessionRequest request{std::move(device), std::move(settings), {}, {}, {}};
  request.probe = {.name = options.probe,
                   .chip = ChipOptions(options, missing),
                   .wireHz = options.clock,
                   .readAhead = !options.noReadAhead};
  if (!options.wireTrace.empty()) request.probe.wireTrace = options.wireTrace;
  request.plugin = options.plugin.empty() ? DefaultPlugin() : std::filesystem::path(options.plugin);
  for (const std::string& fault : options.faults)
    if (IsHostFault(fault)) request.faults.push_back(ParseHostFault(fault));
  return request;
}

Files FilesOf(const TargetOptions& options) {
  Files files;
  files.Reads("device description", options.device);
  files.Reads("chip file", options.chip);
  for (const std::string& chip : options.chips) files.Reads("chip file", chip);
  files.Reads("plug-in", options.plugin);
  files.Reads("password file", options.password.file);
  files.Writes("trace", options.trace);
  files.Writes("trace of the wire", options.wireTrace);
  return files;
}

std::string ChipText(const TargetOptions& options, Session& session) {
  const ChipView* const view = session.View();
  return view == nullptr ? "" : ChipText(options, *view);
}

std::string TargetLine(const TargetOptions& options, Session& session) {
  const std::string chip = ChipText(options, session);
  return chip.empty() ? fmt::format("Probe     {}\n", options.probe) : fmt::format("Chip      {}\n", chip);
}

std::string ChipText(const TargetOptions& options, const ChipView& chip) {
  if (options.chip.empty()) return "a new blank one; --chip FILE would keep it";
  return options.chip + (chip.IsNew() ? " (new)" : "");
}

}  // namespace host::cli
