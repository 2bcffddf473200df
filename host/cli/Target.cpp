#include "host/cli/Target.h"

#include <fmt/format.h>

#include "host/cli/Locations.h"
#include "host/device/InputError.h"
#include "host/plugin/HostFault.h"

namespace host::cli {

namespace {

// What the password command carries of a longer password.
constexpr std::size_t kPasswordBytesSent = 64;

PropertyStore Defaults(const DeviceDescription& device) {
  PropertyStore::Values values;
  for (const FlashProperty& property : device.properties) values.emplace(property.name, property.value);
  return PropertyStore(std::move(values));
}

SimulatedChipOptions ChipOptions(const TargetOptions& options) {
  SimulatedChipOptions chip;
  if (!options.chip.empty()) chip.file = options.chip;
  chip.timing = options.probe;
  chip.lifeCycle = options.lifeCycle;
  for (const std::string& fault : options.faults)
    if (!IsHostFault(fault)) chip.faults.push_back(fault);
  return chip;
}

std::string Unhex(std::string_view digits) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
    bytes += static_cast<char>(std::strtoul(std::string(digits.substr(i, 2)).c_str(), nullptr, 16));
  return bytes;
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
      settings(Defaults(device)),
      probe(device, ChipOptions(options.target)),
      library(options.target.plugin.empty() ? DefaultPlugin() : std::filesystem::path(options.target.plugin)),
      services(probe, settings) {
  ApplySettings(options.target);
  if (options.verbose) settings.Set("FlashVerboseMode", "1");
  for (const std::string& fault : options.target.faults)
    if (IsHostFault(fault)) services.Fail(ParseHostFault(fault));
  if (options.target.trace.empty()) return;

  TraceSecrets secrets;
  for (const FlashProperty& property : device.properties) {
    if (property.type != PropertyType::Password) continue;
    secrets.settings.push_back(property.name);
    const std::string secret = settings.Get(property.name);
    for (const std::string& sent : {secret, Unhex(secret)}) {
      const std::string_view bytes = std::string_view(sent).substr(0, kPasswordBytesSent);
      secrets.passwords.emplace_back(bytes.begin(), bytes.end());
    }
  }
  const TraceHeader header{fmt::format("tovik-flash {}", TOVIK_VERSION),
                           options.target.plugin.empty() ? DefaultPlugin().string() : options.target.plugin,
                           device.name, options.target.probe};
  trace.emplace(options.target.trace, header, std::move(secrets));
  services.AddObserver(*trace);
}

void Target::ApplySettings(const TargetOptions& options) {
  for (const std::string& given : options.settings) {
    const std::size_t equals = given.find('=');
    if (equals == std::string::npos || equals == 0)
      throw InputError(fmt::format("--set {}: expected NAME=VALUE", given));
    const std::string name = given.substr(0, equals);
    std::string value = given.substr(equals + 1);

    const FlashProperty* property = device.Find(name);
    if (property == nullptr && !options.allowUnknownSettings) {
      const std::vector<std::string> nearest = settings.Nearest(name, 3);
      const std::string hint = nearest.empty() ? "" : fmt::format("; nearest: {}", fmt::join(nearest, ", "));
      throw InputError(fmt::format("{} has no setting \"{}\"{}", device.name, name, hint));
    }
    if (property != nullptr) value = NormalizedValue(*property, value);
    settings.Set(name, value);
  }
}

}  // namespace host::cli
