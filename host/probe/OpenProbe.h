#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/device/DeviceDescription.h"
#include "host/probe/DebugProbe.h"
#include "host/probe/UsbProbes.h"

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
  // One of these:
  //   sim, sim:hs, sim:fs, sim:hid      a simulated chip behind a probe of that kind
  //   cmsis-dap[:SERIAL]                a probe at a USB port
  //   tcp:HOST[:PORT]                   a CMSIS-DAP probe in the network
  //   openocd[:HOST[:PORT]]             through an OpenOCD that runs already
  std::string name = "sim";
  SimulatedChipOptions chip = {};
  std::optional<std::uint32_t> wireHz = {};             // of the serial wire; none: what usually works
  bool readAhead = true;                                // fetch the chip's answers behind the commands
  std::optional<std::filesystem::path> wireTrace = {};  // a line for each packet
};

// Powers a simulated target up; leaves a real one as it is. Touches no chip file. Throws InputError for a
// probe that there is not, for an unusable chip file or fault, and for options that the probe does not have;
// ProbeError when a real probe cannot be reached.
std::unique_ptr<DebugProbe> OpenProbe(const ProbeOptions& options, const DeviceDescription& device);

// Whether both names are of one probe, as far as the names tell. Throws InputError for an address that is
// none.
bool IsSameProbe(const std::string& one, const std::string& other);

// What the probe "tcp:HOST[:PORT]" says of itself. Throws InputError for another name, and ProbeError when it
// does not answer.
ListedProbe AskTcpProbe(const std::string& name);

// Name of the device that a chip file is of. Throws InputError when it is no sound chip file.
std::string DeviceOfChipFile(const std::filesystem::path& chipFile);

}  // namespace host
