#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "ByteSource.h"
#include "host/plugin/CallChecker.h"
#include "host/plugin/HostTable.h"

namespace fuzz {

// Stands between the plug-in and an honest host, and lies as the input says: it refuses calls, does not do
// what it says it did, and answers with other registers, memory, connections and properties. Register values
// and addresses stay within 32 bits: wider ones break the contract, and the plug-in stops the process.
//
// Stops the process when the plug-in breaks a rule of CallChecker, which it owes its host whatever the host
// answers, or when a message, property or error text holds a password.
class HostileHost : public HostObject {
 public:
  // A character that is in every password and in no text that this host invents.
  static constexpr char kSecretMark = '\x7F';

  // `honestHost` is kept by reference. `source` reads: how many calls are honest, the kind of the lie, what
  // the lie needs; and again. When it has run out, all calls are honest.
  HostileHost(HostObject& honestHost, const host::WireSizes& sizes, ByteSource source);
  HostileHost(const HostileHost&) = delete;
  HostileHost& operator=(const HostileHost&) = delete;

  [[nodiscard]] IFlashProgrammerUtility2 Utility() { return IFlashProgrammerUtility2(this); }

  void SetLying(bool lying) { lies = lying; }

  // Around every operation of the plug-in: `error` is what it returned.
  void BeginOperation(std::string_view name);
  void EndOperation(std::string_view name, const char* error);

 private:
  friend class host::HostTable<HostileHost>;
  using Table = HostFunctionTable;
  enum class Lie { None, Refuse, RefuseWhenDone, DoNothing, Distort };

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
  const char* IsConnected(bool* connected);
  const char* Connect(bool option);
  const char* ReConnect();
  const char* ReservedFunction(int slot);

  [[nodiscard]] Lie NextLie();
  void ReadHonestCalls();
  [[nodiscard]] std::string InventedText();
  const char* Keep(std::string invented);
  void RequireKeptRules() const;
  template <auto slot, typename Distort, typename... Arguments>
  const char* Answer(host::HostCall& call, Distort&& distort, Arguments... arguments);
  template <auto slot, typename... Arguments>
  const char* Pass(host::HostCall call, Arguments... arguments);
  const char* Tell(host::HostCall& call, const char* error);

  HostObject& honest;
  host::CallChecker checker;
  ByteSource answers;
  unsigned honestCalls = 0;
  bool lies = true;

  unsigned calls = 0;  // in the present operation
  std::uint64_t number = 0;
  std::string core = "CS_DAP_0";  // as the plug-in knows it
  std::string text;               // the last one handed out
};

}  // namespace fuzz
