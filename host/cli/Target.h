#pragma once

#include <optional>

#include "host/cli/Options.h"
#include "host/device/FlashProperties.h"
#include "host/device/PropertyStore.h"
#include "host/plugin/HostServices.h"
#include "host/plugin/PluginLibrary.h"
#include "host/plugin/Trace.h"
#include "host/probe/simulated/SimulatedProbe.h"

namespace host::cli {

// The description of the device that the options name, or else of the one that the chip file is of. Throws
// InputError.
DeviceDescription ReadDevice(const TargetOptions& options);

// All that a verb needs to let a plug-in work on a chip.
class Target {
 public:
  // Reads and checks everything that the user gave; throws InputError for the first thing that is wrong.
  // Nothing has been written then, but an empty trace file.
  explicit Target(const Options& options);

  DeviceDescription device;
  PropertyStore settings;
  SimulatedProbe probe;
  PluginLibrary library;
  HostServices services;

 private:
  void ApplySettings(const TargetOptions& options);

  std::optional<Trace> trace;
};

}  // namespace host::cli
