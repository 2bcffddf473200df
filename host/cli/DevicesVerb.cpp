#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/cli/ExitCode.h"
#include "host/cli/Locations.h"
#include "host/cli/Verb.h"
#include "host/device/DeviceDescription.h"

namespace host::cli {

namespace {

struct NoOptions {};

int Devices(const NoOptions&, Output& output) {
  output.document["devices"] = Json::array();
  for (const std::filesystem::path& file : ListDeviceFiles(DevicesFolder())) {
    const DeviceDescription device = ReadDeviceDescription(file);
    output.document["devices"].push_back({{"name", device.name},
                                          {"family", device.family},
                                          {"description", device.description},
                                          {"main_size", device.map.main.size},
                                          {"sector_size", device.map.sectorSize}});
    output.Say(fmt::format("{:<18}{:<10}{:>6} KiB flash  {}\n", device.name, device.family,
                           device.map.main.size / 1024, device.description));
  }
  return output.Finish("devices", kDone);
}

}  // namespace

void AddDevices(CLI::App& program, Job& chosen) {
  AddVerb<NoOptions>(
      program, chosen, "devices", "List the devices that are described",
      [](CLI::App& verb, NoOptions&) { AddJsonOption(verb); }, Devices);
}

}  // namespace host::cli
