#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/plugin/HostServices.h"

// The positions of the host's table that a plug-in calls.
enum class HostFunction {
  GetValueOfProperty,
  SetValueOfProperty,
  ResetTarget,
  ReadMemory,
  WriteMemory,
  LookupReg,
  ReadReg,
  WriteReg,
  ReportError,
  ReportInfo,
  Sleep,
  SetCore,
  Disconnect,
  IsConnected,
  SetCoreById,
  Connect,
  ReConnect,
};

struct WatchedCall {
  HostFunction function = HostFunction::GetValueOfProperty;
  std::string subject;  // the property, register or core that the call names
  host::Core core{};    // the current one when the call came in
};

// The host's services with an eye on who calls what: holds the plug-in to its promise that every transfer on
// the security access port gives the core back at once, fails single calls, and reads along which commands go
// to the chip.
class WatchedServices : public host::HostServices {
 public:
  WatchedServices(host::DebugProbe& debugProbe, host::PropertyStore& propertyStore);

  // Fails the `nth` call from now (1 for the next) with `text`.
  void FailCall(std::uint64_t nth, const std::string& text);
  // The call that was failed; nothing while it has not come.
  [[nodiscard]] const std::optional<WatchedCall>& FailedCall() const { return failedCall; }

  // Ids of the commands whose header was written, in order.
  [[nodiscard]] const std::vector<std::uint8_t>& Commands() const { return commands; }

  // To be asked when the plug-in has returned: how it broke its promise about the current core; empty when it
  // kept it.
  [[nodiscard]] std::string BrokenPromise();

 private:
  template <HostFunction function, auto slot>
  struct Entry;
  const static HostFunctionTable s_watchedTable;

  void Before(HostFunction function, std::string subject);
  void After(bool failed);
  [[nodiscard]] bool IsTransferStep(bool failed) const;

  const HostFunctionTable* plainTable;
  std::vector<WatchedCall> calls;
  std::uint64_t callToFail = 0;
  std::optional<WatchedCall> failedCall;
  bool startFlag = false;  // of the chip's TX flags
  std::vector<std::uint8_t> commands;
  bool owesDebugPort = false;  // the next call must make the debug port current
  std::string brokenPromise;
};
