#pragma once

#include <gtest/gtest.h>

#include <span>

#include "host/device/MemoryMap.h"
#include "host/plugin/CallChecker.h"
#include "host/plugin/HostServices.h"
#include "host/plugin/SaciWatch.h"

// The host's services with two who look on: one holds the plug-in to what it owes its host and the wire, the
// other reads along which commands go to the chip. The debug port is connected.
class WatchedServices : public host::HostServices {
 public:
  WatchedServices(host::DebugProbe& debugProbe, host::PropertyStore& settings, const host::MemoryMap& map)
      : HostServices(debugProbe, settings),
        checker({.ccfg = map.ccfg.size, .userRecord = map.userRecord.size, .scfg = map.scfg.size}) {
    AddObserver(checker);
    AddObserver(wire);
    ConnectDebugPort();
  }

  // Fails the test for every rule that the plug-in has broken.
  ~WatchedServices() {
    for (const host::CallFinding& finding : checker.Findings())
      ADD_FAILURE() << finding.rule << " in call " << finding.call << ": " << finding.what;
  }

  [[nodiscard]] std::span<const host::SaciExchange> Exchanges() const { return wire.Exchanges(); }

 private:
  host::CallChecker checker;
  host::SaciWatch wire;
};
