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
  std::optional<std::uint64_t> value{};  // register contents, milliseconds, a flag
  std::size_t elementSize = 0;           // of `data`; 0 when the call moves no memory
  std::span<const std::uint8_t> data{};  // what was written, or what has been read
  std::optional<std::string_view> error{};
};

// Who looks over the host services' shoulder.
class HostCallObserver {
 public:
  virtual ~HostCallObserver() = default;
  // Called at the end of every call, failed ones included; `elapsedNs` is the probe's time then.
  virtual void Saw(const HostCall& call, std::uint64_t elapsedNs) = 0;
};

}  // namespace host
