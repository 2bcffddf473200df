#include "host/cli/Target.h"

#include <fmt/format.h>

#include "host/cli/Locations.h"
#include "host/cli/Password.h"
#include "host/device/InputError.h"

namespace host::cli {

namespace {

PropertyStore Defaults(const DeviceDescription& device) {
  PropertyStore::Values values;
  for (const FlashProperty& property : device.properties) values.emplace(property.name, property.value);
  return PropertyStore(std::move(values));
}

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

void ApplySetting(const std::string& given, const DeviceDescription& device, bool allowUnknown,
                  PropertyStore& settings) {
  const std::size_t equals = given.find('=');
  if (equals == std::string::npos || equals == 0)
    throw InputError(fmt::format("--set {}: expected NAME=VALUE", given));
  const std::string name = given.substr(0, equals);
  std::string value = given.substr(equals + 1);

  const FlashProperty* property = device.Find(name);
  if (property == nullptr && !allowUnknown) {
    const std::vector<std::string> nearest = settings.Nearest(name, 3);
    const std::string hint = nearest.empty() ? "" : fmt::format("; nearest: {}", fmt::join(nearest, ", "));
    throw InputError(fmt::format("{} has no setting \"{}\"{}", device.name, name, hint));
  }
  if (property != nullptr) value = NormalizedValue(*property, value);
  settings.Set(name, value);
}

}  // namespace

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
  PropertyStore settings = Defaults(device);
  for (const std::string& given : options.settings)
    ApplySetting(given, device, options.allowUnknownSettings, settings);
  ApplyPassword(options.password, device, settings);
  if (options.verbose) settings.Set("FlashVerboseMode", "1");

  SessionRequest request{std::move(device), std::move(settings), {}, {}, {}};
  request.probe = {.name = options.probe, .chip = ChipOptions(options, missing)};
  request.plugin = options.plugin.empty() ? DefaultPlugin() : std::filesystem::path(options.plugin);
  for (const std::string& fault : options.faults)
    if (IsHostFault(fault)) request.faults.push_back(ParseHostFault(fault));
  return request;
}

Files FilesOf(const TargetOptions& options) {
  Files files;
  files.Reads("device description", options.device);
  files.Reads("chip file", options.chip);
  files.Reads("plug-in", options.plugin);
  files.Reads("password file", options.password.file);
  files.Writes("trace", options.trace);
  return files;
}

std::string ChipText(const TargetOptions& options, Session& session) {
  const ChipView* const view = session.View();
  if (view == nullptr) return "";
  if (options.chip.empty()) return "a new blank one; --chip FILE would keep it";
  return options.chip + (view->IsNew() ? " (new)" : "");
}

}  // namespace host::cli
