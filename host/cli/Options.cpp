#include "host/cli/Options.h"

#include <CLI/CLI.hpp>

namespace host::cli {

void AddJsonOption(CLI::App& verb, Options& options) {
  verb.add_flag("--json", options.json, "Print one machine-readable result and nothing else");
}

void AddDeviceOption(CLI::App& verb, Options& options) {
  verb.add_option("--device", options.target.device,
                  "Device name (see 'tovik-flash devices') or its description file")
      ->type_name("NAME|FILE");
}

void AddTargetOptions(CLI::App& verb, Options& options) {
  TargetOptions& target = options.target;
  AddDeviceOption(verb, options);
  verb.add_option("--chip", target.chip,
                  "File that keeps the chip between runs; without it, a new blank chip")
      ->type_name("FILE");
  verb.add_option("--set", target.settings, "A flash setting, see 'tovik-flash properties'")
      ->type_name("NAME=VALUE")
      ->take_all()
      ->allow_extra_args(false);
  verb.add_flag("--set-unknown-ok", target.allowUnknownSettings,
                "Accept settings that the device does not list");
  verb.add_option("--plugin", target.plugin,
                  "Flash-loader plug-in; without it, the one built with this program")
      ->type_name("FILE");
  verb.add_option("--probe", target.probe, "Modelled probe: hs (10 MHz, 0.15 ms) or fs (4 MHz, 1 ms)")
      ->check(CLI::IsMember({"hs", "fs"}))
      ->type_name("hs|fs");
  verb.add_option("--fault", target.faults, "Make something fail: host:N[=TEXT], or a fault of the chip")
      ->type_name("TEXT")
      ->take_all()
      ->allow_extra_args(false);
  verb.add_option("--life-cycle", target.lifeCycle, "Life-cycle state of the chip, in place of its own")
      ->type_name("0..255");
  verb.add_option("--trace", target.trace, "Record every call of the plug-in to this file, a line each")
      ->type_name("FILE");
  verb.add_flag("--verbose", options.verbose, "Let the plug-in tell more");
  AddJsonOption(verb, options);
}

}  // namespace host::cli
