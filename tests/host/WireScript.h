#pragma once

#include <initializer_list>
#include <vector>

#include "host/plugin/SaciWatch.h"

namespace host {

// Plays a plug-in's calls to an observer, in words as docs/wire-format.md gives them.
class WireScript {
 public:
  static constexpr std::uint64_t kTxControl = 0x10;
  static constexpr std::uint64_t kResetControl = 0x20;

  explicit WireScript(HostCallObserver& sees) : observer(sees) {
    Call({.function = "LookupReg", .subject = "SECAP_TXCTL", .address = kTxControl});
    Call({.function = "LookupReg", .subject = "SECAP_RSTCTL", .address = kResetControl});
  }

  // A whole command: its header with the start flag, then the rest.
  void Send(std::uint32_t header, const std::vector<std::uint32_t>& rest = {}) {
    Call({.function = "WriteReg", .address = kTxControl, .value = 2});
    Move("WriteMemory", {header});
    if (rest.empty()) return;
    Call({.function = "WriteReg", .address = kTxControl, .value = 0});
    Stream(rest);
  }
  void Stream(const std::vector<std::uint32_t>& words) { Move("WriteMemory", words); }
  void Answer(const std::vector<std::uint32_t>& words) {
    for (const std::uint32_t word : words) Move("ReadMemory", {word});
  }

  void Memory(const char* function, std::uint64_t address, const std::vector<std::uint8_t>& bytes,
              const char* error = nullptr) {
    HostCall call{
        .function = function, .core = "Cortex", .address = address, .elementSize = 1, .data = bytes};
    if (error != nullptr) call.error = error;
    Call(call);
  }
  void Call(HostCall call) {
    call.number = ++calls;
    if (call.core.empty()) call.core = "CS_DAP_0";
    observer.Saw(call, ns += 1'000'000);
  }

 private:
  void Move(const char* function, const std::vector<std::uint32_t>& words) {
    std::vector<std::uint8_t> bytes;
    for (const std::uint32_t word : words)
      for (unsigned shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<std::uint8_t>(word >> shift));
    Call({.function = function, .core = "SEC_AP", .address = 0, .elementSize = 4, .data = bytes});
  }

  HostCallObserver& observer;
  std::uint64_t calls = 0;
  std::uint64_t ns = 0;
};

}  // namespace host
