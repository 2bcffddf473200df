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

class Output;

// The job of the verb that the user chose; returns an ExitCode. Throws InputError before anything is touched.
using Job = std::function<int(Output&)>;

// Where the debug password comes from; at most one of them.
struct PasswordOptions {
  std::string text;
  std::string hex;
  std::string file;   // its first line
  bool asks = false;  // at the terminal
};

// What a user may say about the target, for every verb that talks to a chip.
struct TargetOptions {
  std::string device;
  std::string chip;
  std::string plugin;
  std::vector<std::string> settings;  // NAME=VALUE
  bool allowUnknownSettings = false;
  PasswordOptions password;
  std::string probe = "sim";
  // A verb that takes several boards says so before it adds its options, and finds all that were named here.
  bool takesSeveral = false;
  std::vector<std::string> chips;
  std::vector<std::string> probes;
  std::optional<std::uint32_t> clock;  // of the wire, in Hz
  bool noReadAhead = false;
  std::string wireTrace;
  std::vector<std::string> faults;
  std::optional<std::uint32_t> lifeCycle;
  bool inRealTime = false;
  std::string trace;
  bool verbose = false;
};

void AddJsonOption(CLI::App& verb);
void AddDeviceOption(CLI::App& verb, TargetOptions& target);
// --chip, --fault, --life-cycle, --real-time: the simulated chip.
void AddChipOptions(CLI::App& verb, TargetOptions& target);
// --device, --chip, --set and all the others that describe a target; and --json, --verbose.
void AddTargetOptions(CLI::App& verb, TargetOptions& target);

}  // namespace host::cli
