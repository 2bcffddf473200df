#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/device/DeviceDescription.h"
#include "host/device/PropertyStore.h"
#include "host/load/LoadSession.h"
#include "host/plugin/HostServices.h"
#include "host/plugin/PluginLibrary.h"
#include "host/plugin/Trace.h"
#include "host/probe/ChipView.h"
#include "host/probe/OpenProbe.h"

namespace host {

struct SessionRequest {
  DeviceDescription device;
  PropertyStore settings;
  ProbeOptions probe;
  std::filesystem::path plugin;
  std::vector<HostFault> faults;  // host calls that fail on request
};

// One target and all that it takes to let a plug-in work on it: probe, settings, host services, plug-in.
// Several sessions live in one process side by side, each used by one thread at a time; only Cancel may be
// called from anywhere.
class Session {
 public:
  // Opens the plug-in and the probe. Throws InputError for the first thing that is wrong; nothing has been
  // written then.
  explicit Session(SessionRequest request);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // Records every call from now on; `program` is who does it. Throws InputError when the file cannot be
  // written.
  void TraceTo(const std::filesystem::path& file, const std::string& program);
  // What is missing in the trace and why; nothing when it is whole, or not wanted.
  [[nodiscard]] std::optional<std::string> TraceLoss() const;

  // Fails the plug-in's present and every further call with "cancelled". From any thread, or a signal
  // handler.
  void Cancel() noexcept {
    services.Cancel();
    probe->Cancel();
  }
  [[nodiscard]] bool IsCancelled() const { return services.IsCancelled(); }

  // A device object of the plug-in, as the session's device.
  [[nodiscard]] PluginDevice MakeDevice() { return {library, services, device.name}; }

  // What a load of this session works with.
  [[nodiscard]] LoadTarget Target() { return {library, services, *probe, device, settings}; }

  // The word of a register of the debug access ports, by its name; connects the debug port for it. Throws
  // what the probe throws.
  [[nodiscard]] std::uint32_t ReadRegister(std::string_view name);
  // Whether the chip lets a debugger reach its memory.
  [[nodiscard]] bool IsDebuggingOpen();

  // Null for a real chip.
  [[nodiscard]] ChipView* View() { return probe->View(); }
  // Throws InputError when a simulated chip could not be kept.
  void RequireSavableChip() {
    if (const ChipView* const view = View()) view->RequireSavable();
  }
  // Keeps a simulated chip, with all that happened to it. Throws std::runtime_error.
  void SaveChip();

  const DeviceDescription device;
  PropertyStore settings;
  const std::unique_ptr<DebugProbe> probe;
  const PluginLibrary library;
  HostServices services;

 private:
  const std::string pluginName;  // as it was asked for
  const std::string probeName;
  std::optional<Trace> trace;
};

}  // namespace host
