#pragma once

#include <filesystem>
#include <span>
#include <string_view>

#include "host/check/CheckReport.h"
#include "host/device/DeviceDescription.h"

namespace host {

// What one process does of a check: all cases of a device, or every so manieth.
struct CheckPart {
  const std::filesystem::path& plugin;
  const DeviceDescription& device;
  unsigned first = 0;
  unsigned step = 1;
};

// Something that a plug-in is held to.
struct Check {
  enum class With { Library, EachDevice, OneDeviceWhole };  // the last takes long: of the others a sample

  std::string_view name;     // stable
  std::string_view counted;  // "loads"
  std::string_view meaning;  // what a plug-in that passes does
  With with;
  void (*run)(const CheckPart& part, CheckReport& report);
};

// In the order in which they are made.
std::span<const Check> AllChecks();

void CheckExports(const CheckPart& part, CheckReport& report);
void CheckContract(const CheckPart& part, CheckReport& report);
void CheckLoads(const CheckPart& part, CheckReport& report);
void CheckWords(const CheckPart& part, CheckReport& report);
void CheckMemory(const CheckPart& part, CheckReport& report);
void CheckFailedCalls(const CheckPart& part, CheckReport& report);
void CheckChipFaults(const CheckPart& part, CheckReport& report);
void CheckOperations(const CheckPart& part, CheckReport& report);

}  // namespace host
