#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace host::cli {

// What a user may say about the target, for every verb that talks to a chip.
struct TargetOptions {
  std::string device;
  std::string chip;
  std::string plugin;
  std::vector<std::string> settings;  // NAME=VALUE
  bool allowUnknownSettings = false;
  std::string probe = "hs";
  std::vector<std::string> faults;
  std::optional<std::uint8_t> lifeCycle;
  std::string trace;
};

// The command line, parsed. One object for the program: verbs keep references to it.
struct Options {
  TargetOptions target;
  bool json = false;
  bool verbose = false;
  bool progress = true;
  std::function<int()> run;  // the chosen verb; returns an ExitCode
};

void AddJsonOption(CLI::App& verb, Options& options);
void AddDeviceOption(CLI::App& verb, Options& options);
// --device, --chip, --set and all the others that describe a target; and --json, --verbose.
void AddTargetOptions(CLI::App& verb, Options& options);

}  // namespace host::cli
