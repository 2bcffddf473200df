#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "IFlashDevice2.h"
#include "host/plugin/HostServices.h"

namespace host {

// The plug-in's own error text for a call that it failed.
class PluginError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A flash-loader plug-in, loaded from its file. Devices made with it must be gone before it is.
class PluginLibrary {
 public:
  // Throws InputError naming the file: no such file, not a loadable library, no entry in it.
  explicit PluginLibrary(const std::filesystem::path& path);

  using Create = decltype(&CreateFlashDevice4);
  [[nodiscard]] Create Entry() const { return create; }

 private:
  struct Close {
    void operator()(void* handle) const;
  };
  std::unique_ptr<void, Close> library;
  Create create = nullptr;
};

// A parameter or result of a script function.
using ScriptValue = std::variant<long long, std::string>;

// One device object of the plug-in, with its error texts turned into PluginError. Tells the observers of the
// host services when a call into the plug-in begins and ends.
class PluginDevice {
 public:
  // Creates the device; `name` is what the host calls it. `services` must outlive this object.
  PluginDevice(const PluginLibrary& library, HostServices& services, const std::string& name);
  ~PluginDevice();
  PluginDevice(const PluginDevice&) = delete;
  PluginDevice& operator=(const PluginDevice&) = delete;

  // Lists the operations that the plug-in advertises.
  std::vector<std::string> Initialize();
  void StartLoad();
  void EndLoad();
  void WriteBlock(std::uint32_t address, std::span<const std::uint8_t> bytes);
  // Whether the plug-in verifies by itself, so that the host need not read back.
  bool HandlesVerification(std::uint32_t address);
  void PerformOperation(const std::string& operation);
  std::vector<std::string> ScriptFunctions();
  ScriptValue RunScriptFunction(const std::string& name, const std::vector<ScriptValue>& arguments);

 private:
  // Makes one call, which answers null or an error text; throws PluginError for the latter.
  template <typename Action>
  void Call(PluginCall call, Action&& action);

  HostServices& services;
  IFlashDevice4* device = nullptr;
};

}  // namespace host
