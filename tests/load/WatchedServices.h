#pragma once

#include <fmt/format.h>

#include <span>
#include <string>

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

  [[nodiscard]] std::span<const host::SaciExchange> Exchanges() const { return wire.Exchanges(); }

  // What the plug-in has broken so far, a line each; empty when it has kept all rules.
  [[nodiscard]] std::string BrokenRules() const {
    std::string lines;
    for (const host::CallFinding& finding : checker.Findings())
      lines += fmt::format("{} in call {}: {}\n", finding.rule, finding.call, finding.what);
    return lines;
  }

 private:
  host::CallChecker checker;
  host::SaciWatch wire;
};
