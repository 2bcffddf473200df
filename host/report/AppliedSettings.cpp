#include "host/report/AppliedSettings.h"

#include <fmt/format.h>

namespace host {

namespace {

// The hash of a password lets it be guessed at leisure, and the identifier stands beside it.
std::string ShownValue(const FlashProperty& property, const std::string& value) {
  if (value.empty()) return value;
  if (property.type == PropertyType::Password) return "set, not shown";
  if (property.type == PropertyType::Hex) return fmt::format("{} digits, not shown", value.size());
  if (property.type == PropertyType::Bool) return value == "1" ? "on" : "off";
  return value;
}

AppliedSetting Applied(const FlashProperty& property, const std::string& value) {
  const bool isUsual = value == property.value;
  return {.name = property.name,
          .value = ShownValue(property, value),
          .usual = isUsual ? "" : ShownValue(property, property.value),
          .meaning = property.meaning,
          .isUsual = isUsual};
}

}  // namespace

std::vector<AppliedSetting> AppliedSettings(const DeviceDescription& device, const PropertyStore& settings) {
  std::vector<AppliedSetting> applied;
  for (const FlashProperty& property : device.properties)
    if (property.IsSetting()) applied.push_back(Applied(property, settings.Get(property.name)));
  for (const FlashProperty& property : device.properties)
    if (property.type == PropertyType::Fixed && settings.Get(property.name) != property.value)
      applied.push_back(Applied(property, settings.Get(property.name)));
  for (const auto& [name, value] : settings.All())
    if (device.Find(name) == nullptr)
      applied.push_back({.name = name,
                         .value = value.empty() ? "" : "set, not shown",
                         .usual = "",
                         .meaning = "unknown to the device description",
                         .isUsual = false});
  return applied;
}

}  // namespace host
