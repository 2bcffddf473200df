#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace host {

// One call of the plug-in into the host, as the trace shows it. Views into the caller's arguments: valid
// during the call only.
struct HostCall {
  std::string_view function;                  // as the slot is called in the contract: "WriteMemory"
  std::uint64_t number = 0;                   // 1 for the first call of the session
  std::string_view core{};                    // the core that was current when the call came in
  std::optional<std::string_view> subject{};  // property, register or core name, or the message
  std::optional<std::string_view> text{};     // a property's value
  std::optional<std::uint64_t> address{};
  std::optional<int> page{};             // of a memory access
  std::optional<std::uint64_t> value{};  // register contents, milliseconds, a flag
  std::size_t elementSize = 0;           // of `data`; 0 when the call moves no memory
  std::span<const std::uint8_t> data{};  // what was written, or what has been read
  std::uint64_t roundTrips = 0;          // to the probe; 0 where it does not count them, too
  std::optional<std::string_view> error{};
};

// One call of the host into the plug-in. Views, as above.
struct PluginCall {
  std::string_view function;                  // "WriteDataToFlash"
  std::optional<std::string_view> subject{};  // device, operation, script function or load state
  std::optional<std::uint32_t> address{};
  std::optional<std::size_t> bytes{};
  std::optional<std::string_view> error{};  // when it is over and has failed
};

// Who looks over the host services' shoulder. What an observer throws is lost: it cannot fail a call.
class HostCallObserver {
 public:
  virtual ~HostCallObserver() = default;
  // Called at the end of every call, failed ones included; `elapsedNs` is the probe's time then.
  virtual void Saw(const HostCall& call, std::uint64_t elapsedNs) = 0;
  // Around every call into the plug-in. One that never ends has stopped the process.
  virtual void Begins(const PluginCall& /*call*/, std::uint64_t /*elapsedNs*/) {}
  virtual void Ends(const PluginCall& /*call*/, std::uint64_t /*elapsedNs*/) {}
};

}  // namespace host
