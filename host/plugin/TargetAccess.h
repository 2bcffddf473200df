#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "DebuggerAddress.h"
#include "host/probe/DebugProbe.h"

namespace host {

// The target as a debugger presents it to a plug-in: debug cores of which one is current, each with a
// connection of its own, and the registers and memory behind them. Everything fails by throwing
// std::runtime_error with a text for the user.
//
// An access through a core that is not connected is refused: a debugger would refuse it too, and a plug-in
// that forgets to connect must not pass its tests here. A core loses its connection
// - when it is let go, or when its connection could not be made or renewed;
// - when the debug port is let go or connected anew, since every other core lies behind it;
// - when the reset pin is pulled, which takes the target from under the debugger.
class TargetAccess {
 public:
  // `debugProbe` is kept by reference.
  explicit TargetAccess(DebugProbe& debugProbe) : probe(debugProbe) {}

  [[nodiscard]] Core Current() const { return current; }
  [[nodiscard]] bool IsConnected(Core core) const { return connected[Index(core)]; }

  void Select(std::string_view coreName);
  // Both are about the current core. Connecting a connected one renews the connection.
  void Connect();
  void Disconnect();
  // `kind` as in the contract; the pin reset is the one there is.
  void Reset(int kind);

  [[nodiscard]] std::uint32_t FindRegister(std::string_view name) const;
  [[nodiscard]] std::uint32_t ReadRegister(Debugger::Address address);
  void WriteRegister(Debugger::Address address, unsigned long long value);

  // A contiguous range of the current core's memory; on the security access port, its data register.
  struct Range {
    Debugger::Address address;
    int page = 0;
    std::size_t count = 0;  // elements
    std::size_t elementSize = 0;

    // Throws for an element size that no probe has.
    [[nodiscard]] std::size_t Bytes() const;
  };
  void Read(const Range& range, void* elements);
  void Write(const Range& range, const void* elements);

 private:
  static std::size_t Index(Core core) { return static_cast<std::size_t>(core); }

  void Forget(Core core);
  void RequireConnected() const;

  DebugProbe& probe;
  Core current = Core::DebugPort;
  std::array<bool, 3> connected{};
};

}  // namespace host
