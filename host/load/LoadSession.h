#pragma once

#include "host/load/LoadEvents.h"
#include "host/plugin/PluginLibrary.h"
#include "host/probe/DebugProbe.h"

namespace host {

// What a load works with. All must outlive it.
struct LoadTarget {
  const PluginLibrary& library;
  HostServices& services;
  DebugProbe& probe;
  const DeviceDescription& device;
  PropertyStore& settings;
};

// Drives a plug-in through one load as a debugger does: creates the device, opens the load, hands over the
// blocks, asks for verification, closes the load, deletes the device.
class LoadSession {
 public:
  explicit LoadSession(const LoadTarget& loadTarget) : target(loadTarget) {}

  // Carries out `plan`, whose PlannedLoad `record` is, and fills in what became of it. A failure of the
  // plug-in ends the load and is told in the record. `sink` may be empty. Takes over the services' onMessage
  // while it runs.
  void Run(const LoadPlan& plan, LoadRecord& record, const LoadEventSink& sink = {});

 private:
  LoadTarget target;
};

}  // namespace host
