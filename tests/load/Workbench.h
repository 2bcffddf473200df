#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "WatchedServices.h"
#include "host/device/DeviceDescription.h"
#include "host/device/PropertyStore.h"
#include "host/load/Comparison.h"
#include "host/plan/ImagePlan.h"
#include "host/plugin/PluginLibrary.h"
#include "host/probe/simulated/SimulatedProbe.h"

using Bytes = std::vector<std::uint8_t>;

// The library under test, opened once for the process.
const host::PluginLibrary& Plugin();

// Names of all device descriptions of the repository.
std::vector<std::string> DeviceNames();

// A text as part of a test's name.
std::string TestName(std::string text);
// Names the tests of a suite whose parameter is a device's name.
constexpr auto DeviceCaseName = [](const auto& info) { return TestName(info.param); };

// What is erased before a load; each device offers its own way to say so.
enum class Erase { None, Chip, RetainMain, RetainMainAndConfiguration, RetainConfiguration };

// A device description, a simulated chip that is made like it, and a host with the library under test: a
// whole bench without the wood. The chip lives as long as the bench.
class Workbench {
 public:
  explicit Workbench(const std::string& deviceName);

  // Fails the test for a setting that the device does not have.
  void Set(std::string_view name, std::string_view value);
  // False, with nothing changed, when the device cannot be asked for it.
  bool SetErase(Erase erase);

  simulator::Chip& Chip() { return probe.Chip(); }
  bool IsDebuggingOpen() {
    return (Chip().ReadRegister(simulator::Register::CfgApDeviceStatus) & 1U << 24) != 0;
  }
  // Changes the chip's contents behind everybody's back, as if it had come so from elsewhere.
  void Prepare(const std::function<void(simulator::ChipState&)>& change);

  // The blocks that a load under the present settings consists of.
  [[nodiscard]] host::LoadPlan Plan(const std::vector<host::ImageSegment>& image) const;
  // To load with.
  host::LoadTarget Target();
  // One load as the host makes it: a device of its own, the blocks, the end.
  host::LoadRecord Load(const std::vector<host::ImageSegment>& image);
  host::LoadRecord Verify(const std::vector<host::ImageSegment>& image);

  host::DeviceDescription device;
  host::PropertyStore settings;
  host::SimulatedProbe probe;
  WatchedServices services;
};

// The record's error, or "ok".
std::string Outcome(const host::LoadRecord& record);
// The texts of the error messages or of the others.
std::vector<std::string> Errors(const host::LoadRecord& record);
std::vector<std::string> Infos(const host::LoadRecord& record);
