#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "host/cli/ExitCode.h"
#include "host/cli/Locations.h"
#include "host/cli/Output.h"
#include "host/cli/Verbs.h"
#include "host/device/FlashProperties.h"

namespace host::cli {

namespace {

int Devices(const Options& options) {
  Json list = Json::array();
  for (const std::filesystem::path& file : ListDeviceFiles(DevicesFolder())) {
    const DeviceDescription device = ReadDeviceDescription(file);
    if (options.json) {
      list.push_back({{"name", device.name},
                      {"family", device.family},
                      {"description", device.description},
                      {"main_size", device.map.main.size},
                      {"sector_size", device.map.sectorSize}});
    } else {
      fmt::print("{:<18}{:<10}{:>6} KB flash  {}\n", device.name, device.family, device.map.main.size / 1024,
                 device.description);
    }
  }
  if (options.json) PrintJson(list);
  return kDone;
}

}  // namespace

void AddDevices(CLI::App& program, Options& options) {
  CLI::App* verb = program.add_subcommand("devices", "List the devices that are described");
  AddJsonOption(*verb, options);
  verb->callback([&options] { options.run = [&options] { return Devices(options); }; });
}

}  // namespace host::cli
