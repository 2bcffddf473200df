#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <charconv>
#include <memory>

#include "host/cli/ExitCode.h"
#include "host/cli/PluginRun.h"
#include "host/cli/Verbs.h"
#include "host/device/InputError.h"

namespace host::cli {

namespace {

struct ScriptOptions {
  std::vector<std::string> words;  // NAME [ARGUMENT]..., more of them after "+"
  bool list = false;
};

struct ScriptCall {
  std::string name;
  std::vector<ScriptValue> arguments;
};

// An integer, decimal or with 0x; anything else is text.
ScriptValue ToValue(const std::string& word) {
  std::string_view digits = word;
  const bool isNegative = digits.starts_with('-');
  if (isNegative) digits.remove_prefix(1);
  const bool isHex = digits.starts_with("0x") || digits.starts_with("0X");
  if (isHex) digits.remove_prefix(2);
  unsigned long long magnitude = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, magnitude, isHex ? 16 : 10);
  if (error != std::errc{} || stop != end) return word;
  return static_cast<long long>(isNegative ? 0 - magnitude : magnitude);
}

std::vector<ScriptCall> Calls(const std::vector<std::string>& words) {
  std::vector<ScriptCall> calls;
  bool isName = true;
  for (const std::string& word : words) {
    if (word == "+") {
      isName = true;
    } else if (isName) {
      calls.push_back({word, {}});
      isName = false;
    } else {
      calls.back().arguments.push_back(ToValue(word));
    }
  }
  if (calls.empty() || isName) throw InputError("which function? 'tovik-flash script --list' names them");
  return calls;
}

int ListFunctions(const Options& options) {
  Target target(options);
  PluginDevice device(target.library, target.services, target.device.name);
  Json list = Json::array();
  for (const std::string& function : device.ScriptFunctions()) {
    list.push_back(function);
    if (!options.json) fmt::print("{}\n", function);
  }
  if (options.json) PrintJson(list);
  return kDone;
}

std::string ValueText(const ScriptValue& value) {
  if (const auto* number = std::get_if<long long>(&value)) return fmt::format("{}", *number);
  return fmt::format("\"{}\"", std::get<std::string>(value));
}

int Script(const Options& options, const ScriptOptions& script) {
  if (script.list) return ListFunctions(options);
  const std::vector<ScriptCall> calls = Calls(script.words);
  Target target(options);
  return RunPlugin(options, target, ChipAfterwards::Kept, [&](PluginDevice& device, PluginAnswer& answer) {
    target.services.ConnectDebugPort();  // a script runs in a session that is connected
    for (const ScriptCall& call : calls)
      answer.lines.emplace_back(call.name, ValueText(device.RunScriptFunction(call.name, call.arguments)));
  });
}

}  // namespace

void AddScript(CLI::App& program, Options& options) {
  auto script = std::make_shared<ScriptOptions>();
  CLI::App* verb = program.add_subcommand("script", "Call script functions of the plug-in");
  verb->add_option("call", script->words,
                   "A function and its arguments: integers in decimal or 0x form, anything else is text. "
                   "'+' begins a further call in the same session.")
      ->type_name("NAME [ARGUMENT]... [+ NAME ...]");
  verb->add_flag("--list", script->list, "List the functions that the plug-in offers");
  AddTargetOptions(*verb, options);
  verb->callback(
      [&options, script] { options.run = [&options, script] { return Script(options, *script); }; });
}

}  // namespace host::cli
