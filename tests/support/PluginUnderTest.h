#pragma once

#include <string>

#include "FakeHost.h"
#include "IFlashDevice2.h"

using CreateFlashDevice4Function = decltype(&CreateFlashDevice4);

// The exported entry of the built library, loaded once for the process.
CreateFlashDevice4Function PluginEntry();

// An error text for comparison: "ok" for success (null).
std::string Outcome(const char* error);

// A device made by the library's exported entry, for one fake host that outlives it.
class PluginDevice {
 public:
  explicit PluginDevice(FakeHost& host);
  ~PluginDevice();
  PluginDevice(const PluginDevice&) = delete;
  PluginDevice& operator=(const PluginDevice&) = delete;

  IFlashDevice4* operator->() const { return device; }

  // The operations with their results set aside.
  std::string Initialize() const;
  std::string Load(ProgramState state) const { return Outcome(device->ResetSettings(state)); }
  std::string Write(std::uint64_t address, const Bytes& data, short page = 0) const;
  std::string Perform(const char* operation) const { return Outcome(device->PerformOperation(operation)); }
  // The error text, or the integer the function returned.
  std::string Script(const char* name, const std::vector<C_RuneValue>& params = {}) const;

 private:
  IFlashDevice4* device = nullptr;
};
