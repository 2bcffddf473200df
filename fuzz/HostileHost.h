#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "ByteSource.h"
#include "Require.h"
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
  HostileHost(HostObject& honestHost, const host::WireSizes& sizes, ByteSource source)
      : HostObject{nullptr}, honest(honestHost), checker(sizes), answers(source) {
    const static HostFunctionTable s_table = host::HostTable<HostileHost>::Make();
    table = &s_table;
    ReadHonestCalls();
  }
  HostileHost(const HostileHost&) = delete;
  HostileHost& operator=(const HostileHost&) = delete;

  [[nodiscard]] IFlashProgrammerUtility2 Utility() { return IFlashProgrammerUtility2(this); }

  void SetLying(bool lying) { lies = lying; }

  // Around every operation of the plug-in: `error` is what it returned, and given back.
  void BeginOperation(std::string_view name) {
    calls = 0;
    checker.Begins({.function = name}, 0);
  }
  const char* EndOperation(std::string_view name, const char* error) {
    host::PluginCall call{.function = name};
    if (error != nullptr) {
      RequireNoSecret(error);
      call.error = error;
    }
    checker.Ends(call, 0);
    RequireKeptRules();
    return error;
  }

 private:
  friend class host::HostTable<HostileHost>;
  using Call = host::HostCall;
  using Table = HostFunctionTable;
  enum class Lie { None, Refuse, RefuseWhenDone, DoNothing, Distort };

  // The functions of the table.
  const char* GetValueOfProperty(const char* name) {
    (void)Tell({.function = "GetValueOfProperty", .number = ++number, .core = core, .subject = name},
               nullptr);
    const Lie lie = NextLie();
    if (lie == Lie::None) return honest.table->getValueOfProperty(&honest, name);
    if (lie == Lie::Refuse) return nullptr;
    Keep(InventedText());
    // A file that the plug-in would read: this machine has some that never end.
    if (std::string_view(name) == "HsmImagePath") Keep(text.empty() ? "" : "/");
    return text.c_str();
  }
  const char* SetValueOfProperty(const char* name, const char* value) {
    RequireNoSecret(value);
    return Pass<&Table::setValueOfProperty>({.function = "SetValueOfProperty"}, name, value);
  }
  const char* ResetTarget(int kind) { return Pass<&Table::resetTarget>({.function = "ResetTarget"}, kind); }
  const char* ReadMemory(void* elements, std::size_t count, Debugger::Address address, int page,
                         std::size_t elementSize) {
    const std::size_t size = count * elementSize;
    std::memset(elements, 0, size);
    Call call{.function = "ReadMemory",
              .address = Extract(address),
              .page = page,
              .elementSize = elementSize,
              .data = {static_cast<const std::uint8_t*>(elements), size}};
    const auto distort = [&] {
      // The rest stays as the target had it, or zero: never what happened to lie in the buffer.
      const auto bytes = answers.Take(std::min(size, kInventedBytes));
      if (!bytes.empty()) std::memcpy(elements, bytes.data(), bytes.size());
    };
    const char* const error =
        Answer<&Table::readMemory>(call, distort, elements, count, address, page, elementSize);
    return Tell(call, error);
  }
  const char* WriteMemory(const void* elements, std::size_t count, Debugger::Address address, int page,
                          std::size_t elementSize) {
    return Pass<&Table::writeMemory>(
        {.function = "WriteMemory",
         .address = Extract(address),
         .page = page,
         .elementSize = elementSize,
         .data = {static_cast<const std::uint8_t*>(elements), count * elementSize}},
        elements, count, address, page, elementSize);
  }
  const char* LookupReg(const char* name, Debugger::Address* address) {
    Call call{.function = "LookupReg", .subject = name};
    const auto distort = [&] { *address = Debugger::Address(answers.Word()); };
    const char* const error = Answer<&Table::lookupReg>(call, distort, name, address);
    call.address = Extract(*address);
    return Tell(call, error);
  }
  const char* ReadReg(Debugger::Address address, unsigned long long* value) {
    Call call{.function = "ReadReg", .address = Extract(address)};
    const auto distort = [&] { *value = answers.Word(); };
    const char* const error = Answer<&Table::readReg>(call, distort, address, value);
    call.value = *value;
    return Tell(call, error);
  }
  const char* WriteReg(Debugger::Address address, unsigned long long value) {
    return Pass<&Table::writeReg>({.function = "WriteReg", .address = Extract(address), .value = value},
                                  address, value);
  }
  const char* ReportError(const char* message) {
    RequireNoSecret(message);
    return Pass<&Table::reportError>({.function = "ReportError", .subject = message}, message);
  }
  const char* ReportInfo(const char* message) {
    RequireNoSecret(message);
    return Pass<&Table::reportInfo>({.function = "ReportInfo", .subject = message}, message);
  }
  const char* Sleep(unsigned int milliseconds) {
    return Pass<&Table::sleep>({.function = "Sleep"}, milliseconds);
  }
  const char* SetCore(const char* name) {
    const char* const error = Pass<&Table::setCore>({.function = "SetCore", .subject = name}, name);
    if (error == nullptr) core = name;
    return error;
  }
  const char* SetCoreById(const char* id) {
    const char* const error = Pass<&Table::setCoreById>({.function = "SetCoreById", .subject = id}, id);
    if (error == nullptr) core = id;
    return error;
  }
  const char* Disconnect(bool option) { return Pass<&Table::disconnect>({.function = "Disconnect"}, option); }
  const char* IsConnected(bool* connected) {
    Call call{.function = "IsConnected"};
    const auto distort = [&] { *connected = !*connected; };
    const char* const error = Answer<&Table::isConnected>(call, distort, connected);
    call.value = *connected ? 1 : 0;
    return Tell(call, error);
  }
  const char* Connect(bool option) { return Pass<&Table::connect>({.function = "Connect"}, option); }
  const char* ReConnect() { return Pass<&Table::reConnect>({.function = "ReConnect"}); }
  const char* ReservedFunction(int slot) {
    return Tell({.function = "reserved function", .value = static_cast<std::uint64_t>(slot)}, nullptr);
  }

  // Makes the call, or lies about it.
  template <auto slot, typename Distort, typename... Arguments>
  const char* Answer(Call& call, Distort&& distort, Arguments... arguments) {
    call.number = ++number;
    call.core = core;
    const Lie lie = NextLie();
    if (lie == Lie::Refuse) return Keep(InventedText());
    if (lie != Lie::DoNothing)
      if (const char* error = (honest.table->*slot)(&honest, arguments...)) return Keep(error);
    if (lie == Lie::RefuseWhenDone) return Keep(InventedText());
    if (lie == Lie::DoNothing || lie == Lie::Distort) distort();
    return nullptr;
  }
  const char* Tell(Call call, const char* error) {
    if (error != nullptr) call.error = error;
    checker.Saw(call, 0);
    RequireKeptRules();
    return error;
  }
  template <auto slot, typename... Arguments>
  const char* Pass(Call call, Arguments... arguments) {
    const char* const error = Answer<slot>(
        call, [] {}, arguments...);
    return Tell(call, error);
  }

  [[nodiscard]] Lie NextLie() {
    // Ends the waits that have no time-out of their own, which are the host's to end.
    if (++calls == kMostCallsPerOperation) return Lie::Refuse;
    if (!lies || answers.IsEmpty()) return Lie::None;
    if (honestCalls > 0) {
      --honestCalls;
      return Lie::None;
    }
    constexpr Lie kLies[] = {Lie::Refuse, Lie::RefuseWhenDone, Lie::DoNothing, Lie::Distort};
    const Lie lie = kLies[answers.Byte() % 4];
    ReadHonestCalls();
    return lie;
  }
  // Large numbers reach far into a load with one byte.
  void ReadHonestCalls() {
    const unsigned byte = answers.Byte();
    honestCalls = byte < 200 ? byte : 200 + (byte - 200) * 20;
  }
  [[nodiscard]] std::string InventedText() {
    std::string invented = answers.Text();
    std::replace(invented.begin(), invented.end(), kSecretMark, '?');
    return invented.substr(0, invented.find('\0'));  // what the plug-in sees of it
  }
  const char* Keep(std::string invented) {
    text = std::move(invented);
    return text.c_str();
  }

  static void RequireNoSecret(const char* shown) {
    Require(std::strchr(shown, kSecretMark) == nullptr, "a text shows a password");
  }
  void RequireKeptRules() const {
    // Kept only by operations that come in the order that a debugger has.
    constexpr std::string_view kOrdered[] = {"connect first", "debug port", "in SACI", "sequence"};
    for (const host::CallFinding& finding : checker.Findings())
      Require(std::find(std::begin(kOrdered), std::end(kOrdered), finding.rule) != std::end(kOrdered),
              std::string(finding.rule) + ", call " + std::to_string(finding.call) + ": " + finding.what);
  }

  static constexpr unsigned kMostCallsPerOperation = 20'000;
  static constexpr std::size_t kInventedBytes =
      48;  // a response header and the data words that are looked at

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
