#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "WatchedServices.h"
#include "host/check/CheckImage.h"
#include "host/check/ExpectedChip.h"
#include "host/device/DeviceDescription.h"
#include "host/device/PropertyStore.h"
#include "host/load/Comparison.h"
#include "host/plan/ImagePlan.h"
#include "host/plugin/PluginLibrary.h"
#include "host/probe/simulated/SimulatedProbe.h"

using Bytes = std::vector<std::uint8_t>;
using Segments = std::vector<host::ImageSegment>;
using host::CheckImage;
using host::Difference;
using host::Noise;
using host::PutCrcRight;
constexpr std::uint32_t kSectorSize = 2048;

// The library under test, opened once for the process.
const host::PluginLibrary& Plugin();

// Names of all device descriptions of the repository, or of those that have a setting.
std::vector<std::string> DeviceNames(std::string_view setting = {});

// Names the tests of a suite whose parameter is a device's name.
std::string TestName(std::string device);
constexpr auto DeviceCaseName = [](const auto& info) { return TestName(info.param); };

// What is erased before a load.
struct Erase {
  const char* name;  // where one setting says it all
  bool erases = true;
  bool keepsMain = false;
  bool keepsConfiguration = false;
};
inline constexpr Erase kNoErase{"Do not erase sectors (program load only)", false};
inline constexpr Erase kChipErase{"Chip Erase"};
inline constexpr Erase kRetainMain{"Chip Erase (retain sectors specified in CCFG)", true, true};
inline constexpr Erase kRetainAll{"Retain MAIN sectors and CCFG and SCFG", true, true, true};
inline constexpr Erase kRetainConfiguration{"Retain CCFG and SCFG sectors", true, false, true};

// A device description, a simulated chip that is made like it, and a host with the library under test: a
// whole bench without the wood. The chip lives as long as the bench.
class Workbench {
 public:
  explicit Workbench(const std::string& deviceName, host::ReadAhead readAhead = host::ReadAhead::Yes);

  // Fails the test for a setting that the device does not have.
  void Set(std::string_view name, std::string_view value);
  // Each device has its own way to say it. False, with nothing changed, when it cannot be asked for it.
  bool SetErase(const Erase& erase);

  // An HSM image for the plug-in to read, in memory; one a process.
  void ProvideHsmImage(const Bytes& image);

  simulator::Chip& Chip() { return probe.Chip(); }
  const simulator::ChipState& State() { return Chip().State(); }
  bool IsDebuggingOpen() {
    return (Chip().ReadRegister(simulator::Register::CfgApDeviceStatus) & 1U << 24) != 0;
  }
  // Changes the chip's contents behind everybody's back, as if it had come so from elsewhere.
  void Prepare(const std::function<void(simulator::ChipState&)>& change);

  // The blocks that a load under the present settings consists of.
  [[nodiscard]] host::LoadPlan Plan(const Segments& image) const;
  // To load with.
  host::LoadTarget Target() { return {Plugin(), services, probe, device, settings}; }
  // One load as the host makes it: a device of its own, the blocks, the end.
  host::LoadRecord Load(const Segments& image);
  host::LoadRecord Verify(const Segments& image);

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
