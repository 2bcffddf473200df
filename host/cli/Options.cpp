#include "host/cli/Options.h"

#include <CLI/CLI.hpp>

namespace host::cli {

namespace {

// Each value of a list has the option's name before it, so that arguments behind it are not taken for more.
void AddList(CLI::App& verb, const char* name, std::vector<std::string>& values, const char* help,
             const char* typeName) {
  verb.add_option(name, values, help)->type_name(typeName)->take_all()->allow_extra_args(false);
}

// What names a board: as often as there are boards, where the verb takes several.
CLI::Option* AddBoardOption(CLI::App& verb, const char* name, const TargetOptions& target, std::string& only,
                            std::vector<std::string>& all, const char* help) {
  const auto take = [name, &target, &only, &all](const std::vector<std::string>& values) {
    if (values.size() > 1 && !target.takesSeveral)
      throw CLI::ValidationError(name, "one board at a time; only 'load' takes several");
    only = values.front();
    all = values;
  };
  CLI::Option* const option = verb.add_option_function<std::vector<std::string>>(name, take, help);
  if (!target.takesSeveral) option->expected(1);  // for the help
  return option->take_all()->allow_extra_args(false);
}

void AddPasswordOptions(CLI::App& verb, PasswordOptions& password) {
  CLI::Option_group* group = verb.add_option_group("Debug password");
  group->require_option(0, 1);
  group
      ->add_option(
          "--password", password.text,
          "The debug password as text; others may see it in the list of processes. Without any of these, the "
          "environment variable TOVIK_PASSWORD")
      ->type_name("TEXT");
  group->add_option("--password-hex", password.hex, "The same in hexadecimal digits")->type_name("HEX");
  group->add_option("--password-file", password.file, "The first line of this file")->type_name("FILE");
  group->add_flag("--ask-password", password.asks, "Ask for it on the terminal");
}

}  // namespace

void AddJsonOption(CLI::App& verb) {
  verb.add_flag("--json")->description("Print one machine-readable document and nothing else (docs/json.md)");
}

void AddDeviceOption(CLI::App& verb, TargetOptions& target) {
  verb.add_option("--device", target.device,
                  "Device name (see 'tovik-flash devices') or its description file")
      ->type_name("NAME|FILE")
      ->envname("TOVIK_DEVICE");
}

void AddChipOptions(CLI::App& verb, TargetOptions& target) {
  AddBoardOption(verb, "--chip", target, target.chip, target.chips,
                 "File that keeps the simulated chip between runs; without it, a new blank chip")
      ->type_name("FILE")
      ->envname("TOVIK_CHIP");
  AddList(verb, "--fault", target.faults,
          "Make something fail: host:N[=TEXT], or a fault of the simulated chip", "TEXT");
  verb.add_option("--life-cycle", target.lifeCycle,
                  "Life-cycle state of the simulated chip, in place of its own")
      ->type_name("0..255")
      ->check(CLI::Range(0, 255).description(""));
  verb.add_flag("--real-time", target.inRealTime, "Let the simulated chip take the time that it models");
}

void AddTargetOptions(CLI::App& verb, TargetOptions& target) {
  AddDeviceOption(verb, target);
  AddChipOptions(verb, target);
  AddList(verb, "--set", target.settings, "A flash setting, see 'tovik-flash properties'", "NAME=VALUE");
  verb.add_flag("--set-unknown-ok", target.allowUnknownSettings,
                "Accept settings that the device does not list, and other values of its facts");
  AddPasswordOptions(verb, target.password);
  verb.add_option("--plugin", target.plugin,
                  "Flash-loader plug-in; without it, the one built with this program")
      ->type_name("FILE")
      ->envname("TOVIK_PLUGIN");
  AddBoardOption(
      verb, "--probe", target, target.probe, target.probes,
      "The simulated chip behind a high-speed probe (sim:hs, the default), a full-speed one (sim:fs) or "
      "a full-speed HID one (sim:hid); a CMSIS-DAP probe at a USB port (cmsis-dap[:SERIAL]) or in the "
      "network (tcp:HOST[:PORT]); an OpenOCD that runs already (openocd[:HOST[:PORT]])")
      ->type_name("PROBE")
      ->envname("TOVIK_PROBE");
  verb.add_option("--clock", target.clock, "Clock of the probe's wire")
      ->check(CLI::Range(1U, 1'000'000'000U).description(""))
      ->type_name("HZ");
  verb.add_flag("--no-read-ahead", target.noReadAhead, "Fetch no answer before the plug-in asks for it");
  verb.add_option("--trace-wire", target.wireTrace,
                  "Record every packet to the probe in this file, passwords hidden")
      ->type_name("FILE");
  verb.add_option("--trace", target.trace, "Record every call of the plug-in to this file, a line each")
      ->type_name("FILE");
  verb.add_flag("--verbose", target.verbose, "Let the plug-in tell more");
  AddJsonOption(verb);
}

}  // namespace host::cli
