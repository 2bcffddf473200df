#include <fmt/format.h>

#include "host/cli/PluginRun.h"
#include "host/cli/Verb.h"
#include "host/report/ChipContents.h"

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

void Append(PluginAnswer& answer, const std::vector<TitledText>& lines) {
  answer.lines.insert(answer.lines.end(), lines.begin(), lines.end());
}

int Info(const TargetOptions& target, Output& output) {
  return RunPlugin(output, "info", target, ChipAfterwards::Dropped,
                   [](Session& session, PluginDevice& device, PluginAnswer& answer) {
                     const DeviceDescription& description = session.device;
                     answer.lines.emplace_back(
                         "Device", fmt::format("{} ({})", description.name, description.description));
                     answer.lines.emplace_back("Family", description.family);
                     // Before the plug-in touches it: its operations reset the chip.
                     for (const char* name : {"CFGAP_DEVICEID", "CFGAP_PARTID"})
                       answer.lines.emplace_back(name, fmt::format("0x{:08x}", session.ReadRegister(name)));
                     Append(answer, DescribeStatus(session.ReadRegister("CFGAP_DEVICESTATUS")));

                     device.PerformOperation("ReadDeviceInfo");
                     if (description.chip.hsm != HsmForm::None) {
                       TryOperation(device, answer, "ReadHsmSysInfo");
                       TryOperation(device, answer, "ReadHsmUpdateStatus");
                     }
                     for (const FlashProperty& property : description.properties) {
                       const std::string value = session.settings.Get(property.name);
                       if (property.type == PropertyType::Display && !value.empty())
                         answer.lines.emplace_back(property.name, value);
                     }
                     if (const ChipView* const view = session.View())
                       Append(answer, DescribeContents(description, view->Picture()));
                   });
}

}  // namespace

void AddInfo(CLI::App& program, Job& chosen) {
  AddVerb<TargetOptions>(program, chosen, "info", "Show what a chip is and what it holds", AddTargetOptions,
                         Info);
}

}  // namespace host::cli
