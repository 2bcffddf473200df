#include "host/device/Settings.h"

#include <fmt/format.h>

#include <string>
#include <vector>

#include "host/device/InputError.h"
#include "host/device/Text.h"

namespace host {
namespace {

[[noreturn]] void RefuseUnknown(const DeviceDescription& device, std::string_view name) {
  std::vector<std::string> known;
  for (const FlashProperty& property : device.properties)
    if (property.IsSetting()) known.push_back(property.name);
  const std::vector<std::string> nearest = NearestNames(name, known, 3);
  throw InputError(fmt::format("{} has no setting \"{}\"{}{}", device.name, name,
                               nearest.empty() ? "" : "; nearest: ", fmt::join(nearest, ", ")));
}

}  // namespace

PropertyStore DefaultSettings(const DeviceDescription& device) {
  PropertyStore::Values values;
  for (const FlashProperty& property : device.properties) values.emplace(property.name, property.value);
  return PropertyStore(std::move(values));
}

void ApplySetting(const DeviceDescription& device, PropertyStore& settings, std::string_view assignment,
                  Beyond beyond) {
  const std::size_t equals = assignment.find('=');
  // Only a known name is repeated: where the '=' was forgotten, the rest may be a password.
  if (equals == std::string_view::npos || equals == 0)
    throw InputError(fmt::format("--set{}{}: expected NAME=VALUE", device.Find(assignment) ? " " : "",
                                 device.Find(assignment) ? assignment : ""));
  const std::string_view name = assignment.substr(0, equals);
  const std::string_view value = assignment.substr(equals + 1);

  const FlashProperty* const property = device.Find(name);
  if (property != nullptr && property->IsSetting()) {
    settings.Set(name, NormalizedValue(*property, value));
    return;
  }
  if (beyond == Beyond::Allowed) {
    settings.Set(name, value);
    return;
  }
  if (property == nullptr) RefuseUnknown(device, name);
  throw InputError(fmt::format(
      "{} is {}, not a setting; --set-unknown-ok lets it pass", name,
      property->type == PropertyType::Fixed ? "a fact of the device" : "a value that the plug-in displays"));
}

}  // namespace host
