#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/device/DeviceDescription.h"
#include "host/probe/DebugProbe.h"

namespace host {

// A chip file that is not there: a new chip, or the user's slip.
enum class MissingChip { Make, Refuse };

// What concerns the simulated chip, and no other.
struct SimulatedChipOptions {
  std::optional<std::filesystem::path> file = {};  // where the chip is kept
  MissingChip missing = MissingChip::Make;
  std::vector<std::string> faults = {};        // in the simulator's fault grammar
  std::optional<std::uint8_t> lifeCycle = {};  // in place of the one that the chip has
  bool inRealTime = false;                     // take the time that is modelled
};

struct ProbeOptions {
  std::string name = "sim";  // "sim", or with the kind of probe that is modelled: "sim:hs", "sim:fs"
  SimulatedChipOptions chip = {};
};

// Powers the target up; touches no file. Throws InputError for a probe that there is not, and for an unusable
// chip file or fault.
std::unique_ptr<DebugProbe> OpenProbe(const ProbeOptions& options, const DeviceDescription& device);

// Name of the device that a chip file is of. Throws InputError when it is no sound chip file.
std::string DeviceOfChipFile(const std::filesystem::path& chipFile);

}  // namespace host
