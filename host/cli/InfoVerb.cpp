#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "host/cli/PluginRun.h"
#include "host/cli/Verbs.h"

namespace host::cli {

namespace {

// An operation whose failure is part of the information, not the end of it: a chip may have no HSM firmware.
void TryOperation(PluginDevice& device, PluginAnswer& answer, const std::string& operation) {
  try {
    device.PerformOperation(operation);
  } catch (const PluginError& error) {
    answer.lines.emplace_back(operation, error.what());
  }
}

int Info(const Options& options) {
  Target target(options);
  return RunPlugin(options, target, ChipAfterwards::Dropped, [&](PluginDevice& device, PluginAnswer& answer) {
    device.PerformOperation("ReadDeviceInfo");
    answer.lines.emplace_back("Device",
                              fmt::format("{} ({})", target.device.name, target.device.description));
    answer.lines.emplace_back("Family", target.device.family);
    if (target.device.chip.hsm != HsmForm::None) {
      TryOperation(device, answer, "ReadHsmSysInfo");
      TryOperation(device, answer, "ReadHsmUpdateStatus");
    }
    for (const FlashProperty& property : target.device.properties) {
      const std::string value = target.settings.Get(property.name);
      if (property.type == PropertyType::Display && !value.empty())
        answer.lines.emplace_back(property.name, value);
    }
  });
}

}  // namespace

void AddInfo(CLI::App& program, Options& options) {
  CLI::App* verb = program.add_subcommand("info", "Show what the plug-in finds out about a chip");
  AddTargetOptions(*verb, options);
  verb->callback([&options] { options.run = [&options] { return Info(options); }; });
}

}  // namespace host::cli
