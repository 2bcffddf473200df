#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <filesystem>
#include <memory>

#include "host/cli/PluginRun.h"
#include "host/cli/Verbs.h"
#include "host/device/InputError.h"

namespace host::cli {

namespace {

// Runs the operation and shows the property in which the plug-in publishes its result.
int Publish(const Options& options, Target& target, const std::string& operation,
            const std::string& property) {
  return RunOperation(options, target, operation, [&target, property](PluginAnswer& answer) {
    answer.lines.emplace_back(property, target.settings.Get(property, "--"));
  });
}

int Update(const Options& options, const std::string& image) {
  if (!std::filesystem::is_regular_file(image))
    throw InputError(fmt::format("HSM image {}: no such file", image));
  Target target(options);
  target.settings.Set("HsmImagePath", image);
  return Publish(options, target, "ProgramHsmImage", "HsmSysInfo");
}

void AddReading(CLI::App& group, Options& options, const std::string& name, const std::string& help,
                const std::string& operation, const std::string& property) {
  CLI::App* verb = group.add_subcommand(name, help);
  AddTargetOptions(*verb, options);
  verb->callback([&options, operation, property] {
    options.run = [&options, operation, property] {
      Target target(options);
      return Publish(options, target, operation, property);
    };
  });
}

}  // namespace

void AddHsm(CLI::App& program, Options& options) {
  CLI::App* group = program.add_subcommand("hsm", "The firmware of the hardware security module");
  group->require_subcommand(1);

  auto image = std::make_shared<std::string>();
  CLI::App* update = group->add_subcommand("update", "Install an HSM firmware image");
  update->add_option("image", *image, "The firmware image")->required()->type_name("FILE");
  AddTargetOptions(*update, options);
  update->callback(
      [&options, image] { options.run = [&options, image] { return Update(options, *image); }; });

  AddReading(*group, options, "info", "Show the version of the installed firmware", "ReadHsmSysInfo",
             "HsmSysInfo");
  AddReading(*group, options, "status", "Show how the last update went", "ReadHsmUpdateStatus",
             "HsmUpdateStatus");
}

}  // namespace host::cli
