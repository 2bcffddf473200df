#pragma once

#include <optional>

#include "../FlashProperties.h"
#include "../HostServices.h"
#include "../PluginLibrary.h"
#include "../PropertyStore.h"
#include "../SimulatedProbe.h"
#include "../Trace.h"
#include "Options.h"

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
