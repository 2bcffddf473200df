#include <fmt/format.h>

#include <filesystem>

#include "host/cli/PluginRun.h"
#include "host/cli/Verb.h"
#include "host/device/InputError.h"

namespace host::cli {

namespace {

struct UpdateOptions {
  TargetOptions target;
  std::string image;
};

// Runs the operation and shows the property in which the plug-in publishes its result.
int Publish(Output& output, const TargetOptions& target, const std::string& operation,
            const std::string& property) {
  return RunOperation(output, "hsm", target, operation, [property](Session& session, PluginAnswer& answer) {
    answer.lines.emplace_back(property, session.settings.Get(property, "--"));
  });
}

int Update(const UpdateOptions& options, Output& output) {
  if (!std::filesystem::is_regular_file(options.image))
    throw InputError(fmt::format("HSM image {}: no such file", options.image));
  TargetOptions target = options.target;
  target.settings.push_back("HsmImagePath=" + options.image);
  return Publish(output, target, "ProgramHsmImage", "HsmSysInfo");
}

int ShowFirmware(const TargetOptions& target, Output& output) {
  return Publish(output, target, "ReadHsmSysInfo", "HsmSysInfo");
}

int ShowStatus(const TargetOptions& target, Output& output) {
  return Publish(output, target, "ReadHsmUpdateStatus", "HsmUpdateStatus");
}

}  // namespace

void AddHsm(CLI::App& program, Job& chosen) {
  CLI::App* group = program.add_subcommand("hsm", "The firmware of the hardware security module");
  group->require_subcommand(1);
  AddVerb<UpdateOptions>(
      *group, chosen, "update", "Install an HSM firmware image",
      [](CLI::App& verb, UpdateOptions& options) {
        verb.add_option("image", options.image, "The firmware image")->required()->type_name("FILE");
        AddTargetOptions(verb, options.target);
      },
      Update);
  AddVerb<TargetOptions>(*group, chosen, "info", "Show the version of the installed firmware",
                         AddTargetOptions, ShowFirmware);
  AddVerb<TargetOptions>(*group, chosen, "status", "Show how the last update went", AddTargetOptions,
                         ShowStatus);
}

}  // namespace host::cli
