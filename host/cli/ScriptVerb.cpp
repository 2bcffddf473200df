#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>

#include "host/cli/ExitCode.h"
#include "host/cli/PluginRun.h"
#include "host/cli/Target.h"
#include "host/cli/Verb.h"
#include "host/device/InputError.h"
#include "host/device/Number.h"

namespace host::cli {

namespace {

struct ScriptOptions {
  TargetOptions target;
  std::vector<std::string> words;  // NAME [ARGUMENT]..., more of them after "+"
  bool list = false;
};

struct ScriptCall {
  std::string name;
  std::vector<ScriptValue> arguments;
};

// The functions whose arguments are known here; a plug-in may offer others, and those it judges itself.
struct KnownFunction {
  std::string_view name;
  std::size_t arguments;
  std::string_view meaning;
};
constexpr KnownFunction s_functions[] = {
    {"EnsureAuthentication", 1, "LEAVE: open debugging; 1 leaves command mode afterwards, 0 stays in it"},
    {"EnterSaci", 0, "reset the chip into command mode"},
    {"ExitSaci", 0, "leave command mode and halt before the application"},
    {"SaciAppResetDevice", 1, "ACKNOWLEDGE: reset the chip; 1 waits for its answer. Needs command mode"},
};

const KnownFunction* FindFunction(std::string_view name) {
  const auto* const found =
      std::find_if(std::begin(s_functions), std::end(s_functions),
                   [&](const KnownFunction& function) { return function.name == name; });
  return found == std::end(s_functions) ? nullptr : found;
}

// An integer, decimal or with 0x; anything else is text.
ScriptValue ToValue(const std::string& word) {
  std::string_view digits = word;
  const bool isNegative = digits.starts_with('-');
  if (isNegative) digits.remove_prefix(1);
  const std::optional<std::uint64_t> magnitude = ParseNumber(digits);
  if (!magnitude) return word;
  return static_cast<long long>(isNegative ? 0 - *magnitude : *magnitude);
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
  for (const ScriptCall& call : calls)
    if (const KnownFunction* known = FindFunction(call.name);
        known != nullptr && call.arguments.size() > known->arguments)
      throw InputError(fmt::format("{} takes {} argument{}, not {}; '+' begins a further call", call.name,
                                   known->arguments, known->arguments == 1 ? "" : "s",
                                   call.arguments.size()));
  return calls;
}

int ListFunctions(const TargetOptions& target, Output& output) {
  Session session(Request(target, MissingChip::Refuse));
  output.document["functions"] = Json::array();
  for (const std::string& name : session.MakeDevice().ScriptFunctions()) {
    output.document["functions"].push_back(name);
    const KnownFunction* const known = FindFunction(name);
    output.Say(known != nullptr ? fmt::format("{:<22}{}\n", name, known->meaning) : name + "\n");
  }
  return output.Finish("script", kDone);
}

std::string ValueText(const ScriptValue& value) {
  if (const auto* number = std::get_if<long long>(&value)) return fmt::format("{}", *number);
  return fmt::format("\"{}\"", std::get<std::string>(value));
}

int Script(const ScriptOptions& script, Output& output) {
  if (script.list) return ListFunctions(script.target, output);
  const std::vector<ScriptCall> calls = Calls(script.words);
  return RunPlugin(output, "script", script.target, ChipAfterwards::Kept,
                   [&](Session& session, PluginDevice& device, PluginAnswer& answer) {
                     session.services.ConnectDebugPort();  // a script runs in a session that is connected
                     for (const ScriptCall& call : calls)
                       answer.lines.emplace_back(
                           call.name, ValueText(device.RunScriptFunction(call.name, call.arguments)));
                   });
}

}  // namespace

void AddScript(CLI::App& program, Job& chosen) {
  AddVerb<ScriptOptions>(
      program, chosen, "script", "Call script functions of the plug-in",
      [](CLI::App& verb, ScriptOptions& script) {
        verb.add_option(
                "call", script.words,
                "A function and its arguments: integers in decimal or 0x form, anything else is text. "
                "'+' begins a further call in the same session")
            ->type_name("NAME [ARGUMENT]... [+ NAME ...]");
        verb.add_flag("--list", script.list, "List the functions that the plug-in offers");
        AddTargetOptions(verb, script.target);
      },
      Script);
}

}  // namespace host::cli
