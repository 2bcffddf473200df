#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "host/cli/ExitCode.h"
#include "host/cli/Output.h"
#include "host/cli/Target.h"
#include "host/cli/Verbs.h"
#include "host/device/FlashProperties.h"

namespace host::cli {

namespace {

bool IsSetting(const FlashProperty& property) {
  return property.type != PropertyType::Fixed && property.type != PropertyType::Display;
}

void PrintSetting(const FlashProperty& property) {
  fmt::print("  {}\n      {}\n      {}, default \"{}\"\n", property.name, property.meaning,
             PropertyTypeName(property.type), property.value);
  for (const std::string& choice : property.choices) fmt::print("        \"{}\"\n", choice);
}

int Properties(const Options& options) {
  const DeviceDescription device = ReadDevice(options.target);
  if (options.json) {
    Json list = Json::array();
    for (const FlashProperty& property : device.properties)
      list.push_back({{"name", property.name},
                      {"type", PropertyTypeName(property.type)},
                      {"default", property.value},
                      {"choices", property.choices},
                      {"group", property.group},
                      {"meaning", property.meaning}});
    PrintJson(list);
    return kDone;
  }
  fmt::print("Settings of {}, for --set NAME=VALUE:\n", device.name);
  std::string group;
  for (const FlashProperty& property : device.properties) {
    if (!IsSetting(property)) continue;
    if (property.group != group) fmt::print("\n{}\n", group = property.group);
    PrintSetting(property);
  }
  fmt::print("\nFacts of the device, which the plug-in reads as well:\n");
  for (const FlashProperty& property : device.properties)
    if (property.type == PropertyType::Fixed) fmt::print("  {:<34}{}\n", property.name, property.value);
  return kDone;
}

}  // namespace

void AddProperties(CLI::App& program, Options& options) {
  CLI::App* verb = program.add_subcommand("properties", "List the flash settings of a device");
  AddDeviceOption(*verb, options);
  AddJsonOption(*verb, options);
  verb->callback([&options] { options.run = [&options] { return Properties(options); }; });
}

}  // namespace host::cli
