#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "IFlashProgrammerUtility2.h"
#include "host/device/PropertyStore.h"
#include "host/plugin/HostCall.h"
#include "host/plugin/HostFault.h"
#include "host/plugin/Trace.h"
#include "host/probe/DebugProbe.h"

namespace host {

// What the host offers a plug-in: the function table and the object behind it. Keeps the current core, a
// connection state for each core, and counts what passes. Every failure is answered with an error text that
// stays valid until the next call; nothing is thrown into the plug-in.
//
// A register or memory access on a core that is not connected is refused: a debugger would refuse it too, and
// a plug-in that forgets to connect must not pass its tests here.
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

  // Null for no trace; not owned.
  void TraceTo(Trace* target) { trace = target; }
  // Kept by reference for the life of this object, or until it is taken away again.
  void AddObserver(HostCallObserver& observer) { observers.push_back(&observer); }
  void RemoveObserver(HostCallObserver& observer) { std::erase(observers, &observer); }
  void Fail(HostFault hostFault) { fault = std::move(hostFault); }

  // From now on every call fails with "cancelled". May be called from any thread and from a signal handler.
  void Cancel() noexcept { cancelled.store(true); }
  [[nodiscard]] bool IsCancelled() const noexcept { return cancelled.load(); }

  // The session of a debugger begins with a connected debug port. Throws what the probe throws.
  void ConnectDebugPort();

  [[nodiscard]] std::uint64_t CallCount() const { return callCount; }
  [[nodiscard]] std::uint64_t BytesWritten() const { return bytesWritten; }
  [[nodiscard]] bool IsConnected(Core core) const { return connected[static_cast<std::size_t>(core)]; }
  [[nodiscard]] Core CurrentCore() const { return current; }

 private:
  struct Entries;  // the functions of the table

  template <typename Action>
  const char* Answer(HostCall call, Action&& action);
  void CountCall(HostCall& call);
  void Finish(const HostCall& call);

  const char* Property(const char* name);
  void Report(bool isError, const char* message);
  void Select(const char* coreName);
  void ConnectCurrent();
  void RequireConnected() const;
  void Read(HostCall& call, void* elements, std::size_t count, Debugger::Address address, int page,
            std::size_t elementSize);
  void Write(HostCall& call, const void* elements, std::size_t count, Debugger::Address address, int page,
             std::size_t elementSize);

  DebugProbe& probe;
  PropertyStore& properties;
  Trace* trace = nullptr;
  std::vector<HostCallObserver*> observers;
  std::optional<HostFault> fault;
  std::atomic<bool> cancelled = false;
  Core current = Core::DebugPort;
  std::array<bool, 3> connected{};
  std::string lastError;
  std::uint64_t callCount = 0;
  std::uint64_t bytesWritten = 0;
};

}  // namespace host
