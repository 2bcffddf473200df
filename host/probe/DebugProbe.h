#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/probe/Traffic.h"

namespace host {

class ChipView;

// The debug cores of the target, as the plug-in selects them.
enum class Core { DebugPort, SecureAp, Cortex };

// The name a core has in the flash settings and in texts: "CS_DAP_0", "SEC_AP", "Cortex".
[[nodiscard]] std::string_view CoreName(Core core);
[[nodiscard]] std::optional<Core> FindCore(std::string_view name);

// What stands between the host and a chip. Every operation fails by throwing std::runtime_error with a text
// for the user. Which core is current and which cores are connected is HostServices' business: it calls the
// operations below only for a connected core. Addresses are target addresses, 32 bits wide.
class DebugProbe {
 public:
  virtual ~DebugProbe() = default;

  // Brings up (or takes down) the connection to one core; connecting twice renews the connection. Those to
  // the other cores end with the debug port's, and are made anew after it has been renewed.
  virtual void Connect(Core core) = 0;
  virtual void Disconnect(Core core) = 0;
  // Pulls the target's reset pin; needs no connected core.
  virtual void PinReset() = 0;

  // Address of a register of the debug access ports, by its name; nothing for a name the target lacks.
  [[nodiscard]] virtual std::optional<std::uint32_t> FindRegister(std::string_view name) const = 0;
  [[nodiscard]] virtual std::uint32_t ReadRegister(std::uint32_t address) = 0;
  virtual void WriteRegister(std::uint32_t address, std::uint32_t value) = 0;

  // Words through the data register of the security access port, one transfer for all of them.
  virtual void PushWords(std::span<const std::uint32_t> words) = 0;
  virtual void PopWords(std::span<std::uint32_t> words) = 0;

  // Target memory through the AHB access port, one transfer for the whole range, which is a whole number of
  // elements of `elementSize` (1, 2 or 4) bytes: the width of an access on the target's bus.
  virtual void WriteMemory(std::uint32_t address, std::span<const std::uint8_t> bytes,
                           std::size_t elementSize) = 0;
  virtual void ReadMemory(std::uint32_t address, std::span<std::uint8_t> bytes, std::size_t elementSize) = 0;

  virtual void Sleep(std::uint32_t milliseconds) = 0;
  // Time since the probe was opened, in nanoseconds of the probe's own clock: modelled time where the target
  // is simulated.
  [[nodiscard]] virtual std::uint64_t ElapsedNs() const = 0;
  [[nodiscard]] virtual Traffic Counted() const { return {}; }
  // How often the probe was waited for.
  [[nodiscard]] virtual std::uint64_t RoundTrips() const { return Counted().roundTrips; }
  // Clock of the serial wire; nothing where only the probe knows it.
  [[nodiscard]] virtual std::optional<std::uint32_t> WireHz() const { return std::nullopt; }
  // Fails the present operation and every further one with "cancelled". From any thread, or a signal handler.
  virtual void Cancel() noexcept {}
  // Null for a real target.
  [[nodiscard]] virtual ChipView* View() { return nullptr; }
};

}  // namespace host
