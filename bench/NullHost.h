#pragma once

#include <cstddef>
#include <cstdint>

#include "host/plugin/HostTable.h"

namespace bench {

// A host whose probe answers at once and whose chip accepts everything: what is left of a load is the
// plug-in's own work. It looks at no data, so its own share of the time is a few nanoseconds a call.
class NullHost : public HostObject {
 public:
  NullHost();
  NullHost(const NullHost&) = delete;
  NullHost& operator=(const NullHost&) = delete;

  [[nodiscard]] IFlashProgrammerUtility2 Utility() { return IFlashProgrammerUtility2(this); }

  std::uint64_t calls = 0;  // of the function table

 private:
  friend class host::HostTable<NullHost>;

  const char* Count() {
    ++calls;
    return nullptr;
  }

  // The functions of the table.
  const char* GetValueOfProperty(const char* name);
  const char* SetValueOfProperty(const char*, const char*) { return Count(); }
  const char* ResetTarget(int) { return Count(); }
  const char* ReadMemory(void* elements, std::size_t, Debugger::Address, int, std::size_t);
  const char* WriteMemory(const void* elements, std::size_t, Debugger::Address, int, std::size_t);
  const char* LookupReg(const char* name, Debugger::Address* address);
  const char* ReadReg(Debugger::Address address, unsigned long long* value);
  const char* WriteReg(Debugger::Address address, unsigned long long value);
  const char* ReportError(const char*) { return Count(); }
  const char* ReportInfo(const char*) { return Count(); }
  const char* Sleep(unsigned int) { return Count(); }
  const char* SetCore(const char*) { return Count(); }
  const char* SetCoreById(const char*) { return Count(); }
  const char* Disconnect(bool) { return Count(); }
  const char* IsConnected(bool* connected) {
    *connected = true;
    return Count();
  }
  const char* Connect(bool) { return Count(); }
  const char* ReConnect() { return Count(); }
  const char* ReservedFunction(int) { return "the bench offers no such function"; }

  bool startFlag = false;  // TX_CMD_START: the next word is a command header
  std::uint32_t command = 0;
  std::uint32_t sequence = 0;
};

// The chip behind it: MAIN flash of 16 MiB in sectors of 2048 bytes, nothing else worth loading.
inline constexpr std::uint32_t kMainSize = 0x1000000;
inline constexpr std::uint32_t kSectorSize = 0x800;

}  // namespace bench
