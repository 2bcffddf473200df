#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <memory>

#include "host/cli/ExitCode.h"
#include "host/cli/PluginRun.h"
#include "host/cli/Verbs.h"
#include "host/device/InputError.h"

namespace host::cli {

namespace {

struct OperationOptions {
  std::string name;
  bool list = false;
};

int ListOperations(const Options& options) {
  Target target(options);
  PluginDevice device(target.library, target.services, target.device.name);
  Json list = Json::array();
  for (const std::string& operation : device.Initialize()) {
    list.push_back(operation);
    if (!options.json) fmt::print("{}\n", operation);
  }
  if (options.json) PrintJson(list);
  return kDone;
}

int Operation(const Options& options, const OperationOptions& operation) {
  if (operation.list) return ListOperations(options);
  if (operation.name.empty()) throw InputError("which operation? 'tovik-flash operation --list' names them");
  Target target(options);
  return RunOperation(options, target, operation.name);
}

}  // namespace

void AddOperation(CLI::App& program, Options& options) {
  auto operation = std::make_shared<OperationOptions>();
  CLI::App* verb = program.add_subcommand("operation", "Run an operation of the plug-in by its name");
  verb->add_option("name", operation->name, "As the plug-in spells it")->type_name("NAME");
  verb->add_flag("--list", operation->list, "List the operations that the plug-in offers");
  AddTargetOptions(*verb, options);
  verb->callback([&options, operation] {
    options.run = [&options, operation] { return Operation(options, *operation); };
  });
}

}  // namespace host::cli
