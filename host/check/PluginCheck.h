#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "host/check/CheckReport.h"
#include "host/check/Checks.h"
#include "host/device/DeviceDescription.h"

namespace host {

// What came of one check.
struct CheckResult {
  const Check* check;
  bool wasMade;         // else a check before it has failed that it needs
  std::uint64_t count;  // of what the check counts
  std::vector<CheckFinding> findings;

  [[nodiscard]] bool HasPassed() const { return wasMade && findings.empty(); }
};

struct PluginCheckRequest {
  std::filesystem::path plugin;
  std::vector<DeviceDescription> devices;      // at least one
  std::vector<std::string> only;               // names of the checks to make; empty: all
  std::chrono::milliseconds patience{10'000};  // with one call into the plug-in
};

// Holds a plug-in to its contract, check by check, each in processes of its own, as many at a time as there
// are processors. `sink` gets each result as it comes. Throws InputError when the file is no shared library
// for this machine, and for the name of a check that there is not.
std::vector<CheckResult> CheckPlugin(const PluginCheckRequest& request,
                                     const std::function<void(const CheckResult&)>& sink);

}  // namespace host
