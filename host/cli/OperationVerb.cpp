#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "host/cli/ExitCode.h"
#include "host/cli/PluginRun.h"
#include "host/cli/Target.h"
#include "host/cli/Verb.h"
#include "host/device/InputError.h"

namespace host::cli {

namespace {

struct OperationOptions {
  TargetOptions target;
  std::string name;
  bool list = false;
};

int ListOperations(const TargetOptions& target, Output& output) {
  Session session(Request(target, MissingChip::Refuse));
  output.document["operations"] = Json::array();
  for (const std::string& operation : session.MakeDevice().Initialize()) {
    output.document["operations"].push_back(operation);
    output.Say(operation + "\n");
  }
  return output.Finish("operation", kDone);
}

int Operation(const OperationOptions& options, Output& output) {
  if (options.list) return ListOperations(options.target, output);
  if (options.name.empty()) throw InputError("which operation? 'tovik-flash operation --list' names them");
  return RunOperation(output, "operation", options.target, options.name);
}

}  // namespace

void AddOperation(CLI::App& program, Job& chosen) {
  AddVerb<OperationOptions>(
      program, chosen, "operation", "Run an operation of the plug-in by its name",
      [](CLI::App& verb, OperationOptions& options) {
        verb.add_option("name", options.name, "As the plug-in spells it")->type_name("NAME");
        verb.add_flag("--list", options.list, "List the operations that the plug-in offers");
        AddTargetOptions(verb, options.target);
      },
      Operation);
}

}  // namespace host::cli
