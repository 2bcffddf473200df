#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "IFlashProgrammerUtility2.h"
#include "host/device/PropertyStore.h"
#include "host/plugin/HostCall.h"
#include "host/plugin/HostFault.h"
#include "host/plugin/HostTable.h"
#include "host/plugin/TargetAccess.h"
#include "host/probe/DebugProbe.h"

namespace host {

// What every call is answered once the session has been cancelled.
inline constexpr std::string_view kCancelledText = "cancelled";

// What the host offers a plug-in: the function table and the object behind it. Counts the calls, shows them
// to observers, and carries them out on the settings and the target. Every failure is answered with an error
// text that stays valid until the next call; nothing is thrown into the plug-in.
class HostServices : public HostObject {
 public:
  // `probe` and `properties` are kept by reference and must outlive this object, and this object any device
  // that was made with its Utility().
  HostServices(DebugProbe& probe, PropertyStore& properties);
  HostServices(const HostServices&) = delete;
  HostServices& operator=(const HostServices&) = delete;

  [[nodiscard]] IFlashProgrammerUtility2 Utility() { return IFlashProgrammerUtility2(this); }

  // A message of the plug-in for the user, as it comes. Set before the first call, or leave empty.
  std::function<void(bool isError, const std::string& text)> onMessage;
  // Bytes that were moved to the target (command words and RAM data), after each transfer.
  std::function<void(std::uint64_t bytes)> onBytesWritten;

  // Kept by reference for the life of this object, or until it is taken away again.
  void AddObserver(HostCallObserver& observer) { observers.push_back(&observer); }
  void RemoveObserver(HostCallObserver& observer) { std::erase(observers, &observer); }
  // Whoever calls into the plug-in says so here, for the observers.
  void TellBegin(const PluginCall& call) noexcept;
  void TellEnd(const PluginCall& call) noexcept;

  // One more call that is to fail.
  void Fail(HostFault fault) { faults.push_back(std::move(fault)); }

  // From now on every call fails with kCancelledText, which the plug-in takes for a failure like any other.
  // Look-ups of properties are answered as ever: they have no error text, and a property that seems to be
  // missing would hide the reason. May be called from any thread and from a signal handler, like the two
  // below.
  void Cancel() noexcept { cancelled.store(true); }
  void ResetCancel() noexcept { cancelled.store(false); }
  [[nodiscard]] bool IsCancelled() const noexcept { return cancelled.load(); }

  // The session of a debugger begins with a connected debug port. Throws what the probe throws.
  void ConnectDebugPort();

  [[nodiscard]] std::uint64_t CallCount() const { return callCount; }
  [[nodiscard]] std::uint64_t BytesWritten() const { return bytesWritten; }
  [[nodiscard]] bool IsConnected(Core core) const { return target.IsConnected(core); }
  [[nodiscard]] Core CurrentCore() const { return target.Current(); }

 private:
  friend class HostTable<HostServices>;

  // The functions of the table.
  const char* GetValueOfProperty(const char* name);
  const char* SetValueOfProperty(const char* name, const char* value);
  const char* ResetTarget(int kind);
  const char* ReadMemory(void* elements, std::size_t count, Debugger::Address address, int page,
                         std::size_t elementSize);
  const char* WriteMemory(const void* elements, std::size_t count, Debugger::Address address, int page,
                          std::size_t elementSize);
  const char* LookupReg(const char* name, Debugger::Address* address);
  const char* ReadReg(Debugger::Address address, unsigned long long* value);
  const char* WriteReg(Debugger::Address address, unsigned long long value);
  const char* ReportError(const char* message);
  const char* ReportInfo(const char* message);
  const char* Sleep(unsigned int milliseconds);
  const char* SetCore(const char* name);
  const char* SetCoreById(const char* id);
  const char* Disconnect(bool option);
  const char* IsConnected(bool* isConnected);
  const char* Connect(bool option);
  const char* ReConnect();
  const char* ReservedFunction(int slot);

  template <typename Action>
  const char* Answer(HostCall call, Action&& action);
  void Admit(HostCall& call);
  const char* Keep(const char* text) noexcept;
  template <typename Telling>
  void Tell(Telling&& telling) noexcept;
  void Report(bool isError, std::string_view message);

  DebugProbe& probe;
  PropertyStore& properties;
  TargetAccess target;
  std::vector<HostCallObserver*> observers;
  std::vector<HostFault> faults;
  std::atomic<bool> cancelled = false;
  static_assert(std::atomic<bool>::is_always_lock_free, "a signal handler sets it");
  std::string lastError;
  std::uint64_t callCount = 0;
  std::uint64_t bytesWritten = 0;
};

}  // namespace host
