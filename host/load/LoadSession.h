#pragma once

#include <string>
#include <utility>

#include "host/load/LoadEvents.h"
#include "host/plugin/PluginLibrary.h"
#include "host/probe/DebugProbe.h"

namespace host {

// Drives a plug-in through one load as a debugger does: creates the device, opens the load, hands over the
// blocks, asks for verification, closes the load, deletes the device.
class LoadSession {
 public:
  // All are kept by reference and must outlive the session, which takes over the two callbacks of `services`
  // while it runs.
  LoadSession(const PluginLibrary& plugin, HostServices& hostServices, DebugProbe& debugProbe,
              std::string name)
      : library(plugin), services(hostServices), probe(debugProbe), deviceName(std::move(name)) {}

  // A failure of the plug-in ends the load and is told in the report. In Verify mode the caller has set the
  // property that makes the plug-in verify only. `sink` may be empty.
  LoadReport Run(const LoadPlan& plan, const MemoryMap& map, LoadMode mode, const LoadEventSink& sink);

 private:
  void Drive(const LoadPlan& plan, LoadReport& report, const LoadEventSink& sink);

  const PluginLibrary& library;
  HostServices& services;
  DebugProbe& probe;
  std::string deviceName;
};

// Reads off the plug-in's outcome line, or the error text that ended the comparison, what a verification
// compared, and sets the outcomes, the note and the error. The plug-in compares MAIN, CCFG and SCFG in this
// order and stops at the first that differs or that the images do not hold; a region that they do not hold is
// no failure of what they do.
void JudgeVerification(LoadReport& report);

}  // namespace host
