#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/cli/ExitCode.h"
#include "host/cli/Target.h"
#include "host/cli/Verb.h"

namespace host::cli {

namespace {

std::string SettingText(const FlashProperty& property) {
  std::string text = fmt::format("  {}\n      {}\n      {}, default \"{}\"\n", property.name,
                                 property.meaning, PropertyTypeName(property.type), property.value);
  for (const std::string& choice : property.choices) text += fmt::format("        \"{}\"\n", choice);
  return text;
}

Json AsJson(const FlashProperty& property) {
  return {{"name", property.name},     {"type", PropertyTypeName(property.type)},
          {"default", property.value}, {"choices", property.choices},
          {"group", property.group},   {"meaning", property.meaning}};
}

int Properties(const TargetOptions& target, Output& output) {
  const DeviceDescription device = ReadDevice(target);
  output.document["device"] = device.name;
  output.document["properties"] = Json::array();
  for (const FlashProperty& property : device.properties)
    output.document["properties"].push_back(AsJson(property));

  output.Say(fmt::format("Settings of {}, for --set NAME=VALUE:\n", device.name));
  std::string group;
  for (const FlashProperty& property : device.properties) {
    if (!property.IsSetting()) continue;
    if (property.group != group) output.Say(fmt::format("\n{}\n", group = property.group));
    output.Say(SettingText(property));
  }
  output.Say("\nFacts of the device, which the plug-in reads as well:\n");
  for (const FlashProperty& property : device.properties)
    if (property.type == PropertyType::Fixed)
      output.Say(fmt::format("  {:<34}{}\n", property.name, property.value));
  return output.Finish("properties", kDone);
}

}  // namespace

void AddProperties(CLI::App& program, Job& chosen) {
  AddVerb<TargetOptions>(
      program, chosen, "properties", "List the flash settings of a device",
      [](CLI::App& verb, TargetOptions& target) {
        AddDeviceOption(verb, target);
        AddJsonOption(verb);
      },
      Properties);
}

}  // namespace host::cli
