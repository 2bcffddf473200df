#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/check/CheckImage.h"
#include "host/check/CheckReport.h"
#include "host/check/Checks.h"
#include "host/device/PropertyStore.h"
#include "host/plan/LoadPlan.h"
#include "host/plugin/CallChecker.h"
#include "host/plugin/HostServices.h"
#include "host/plugin/PluginLibrary.h"
#include "host/probe/simulated/SimulatedProbe.h"

namespace host {

// The text of a host call that is made to fail.
inline constexpr const char* kRefusal = "the probe says: no (0x17)";

// A described device, its simulated chip and its settings, for a plug-in to show what it does.
class CheckBench {
 public:
  CheckBench(const CheckPart& part, CheckReport& checkReport);

  // Several of NAME=VALUE, joined by ";". False, with some of them set, for a setting that the device lacks.
  bool Set(std::string_view assignments);
  // What is there to be loaded; under the present settings.
  [[nodiscard]] LoadPlan Plan(const std::vector<ImageSegment>& image) const;
  // Puts a chip with these contents, with power and without faults, in place of the present one.
  void PutChip(const simulator::ChipState& state);
  // What all that was sent to the chip has made of it.
  const simulator::ChipState& Chip();
  void AskForFault(std::string_view fault) { probe.Chip().AskedFaults().Add(fault); }

  CheckReport& report;
  const DeviceDescription& device;
  const PluginLibrary library;
  PropertyStore settings;
  SimulatedProbe probe;
};

// One device object of the plug-in at work, and a host that holds it to the rules: each that it breaks is
// told to the report. The calls answer the plug-in's error text, or nothing.
class CheckedDevice {
 public:
  using Failure = std::optional<std::string>;

  explicit CheckedDevice(CheckBench& checkBench);
  ~CheckedDevice();
  CheckedDevice(const CheckedDevice&) = delete;
  CheckedDevice& operator=(const CheckedDevice&) = delete;

  // Makes the device object and initializes it, as far as that is not done yet; the others do so first.
  Failure Create();
  Failure Load(const LoadPlan& plan);
  Failure Perform(const std::string& operation);
  Failure Run(const std::string& function, const std::vector<ScriptValue>& arguments);
  // The chip's layout is read by Initialize alone: a host that could not answer then has to call it again.
  void ForgetInitialization() { isInitialized = false; }

  // A load that nothing disturbs, told to the report unless it succeeds and the chip is as it should be.
  void LoadWell(const LoadPlan& plan);

  HostServices services;                // whose observers must outlive this object
  std::vector<std::string> operations;  // that the plug-in has advertised
  std::vector<std::string> errors;      // reported, until somebody clears them
  std::vector<std::string> infos;

 private:
  Failure Call(std::string_view step, const std::function<void()>& action);
  void TellBrokenRules();

  CheckBench& bench;
  CallChecker rules;
  std::size_t rulesTold = 0;
  std::optional<PluginDevice> device;
  bool isInitialized = false;
};

}  // namespace host
