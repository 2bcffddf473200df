#include "HostileHost.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "Require.h"

namespace fuzz {

namespace {

// Ends the waits that have no time-out of their own, which are the host's to end.
constexpr unsigned kMostCallsPerOperation = 20'000;

// Enough for a response header and the data words that the device looks at.
constexpr std::size_t kInventedBytes = 48;

constexpr auto kNothing = [] {};

void RequireNoSecret(const char* shown) {
  Require(std::strchr(shown, HostileHost::kSecretMark) == nullptr, "a text shows a password");
}

}  // namespace

HostileHost::HostileHost(HostObject& honestHost, const host::WireSizes& sizes, ByteSource source)
    : HostObject{nullptr}, honest(honestHost), checker(sizes), answers(source) {
  const static HostFunctionTable s_table = host::HostTable<HostileHost>::Make();
  table = &s_table;
  ReadHonestCalls();
}

void HostileHost::BeginOperation(std::string_view name) {
  calls = 0;
  checker.Begins({.function = name}, 0);
}

void HostileHost::EndOperation(std::string_view name, const char* error) {
  host::PluginCall call{.function = name};
  if (error != nullptr) {
    RequireNoSecret(error);
    call.error = error;
  }
  checker.Ends(call, 0);
  RequireKeptRules();
}

HostileHost::Lie HostileHost::NextLie() {
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
void HostileHost::ReadHonestCalls() {
  constexpr unsigned kSmall = 200;
  constexpr unsigned kStride = 20;
  const unsigned byte = answers.Byte();
  honestCalls = byte < kSmall ? byte : kSmall + (byte - kSmall) * kStride;
}

std::string HostileHost::InventedText() {
  std::string invented = answers.Text();
  std::replace(invented.begin(), invented.end(), kSecretMark, '?');
  return invented.substr(0, invented.find('\0'));  // what the plug-in sees of it
}

const char* HostileHost::Keep(std::string invented) {
  text = std::move(invented);
  return text.c_str();
}

void HostileHost::RequireKeptRules() const {
  // Kept only by operations that come in the order that a debugger has.
  constexpr std::string_view kOrdered[] = {"connect first", "debug port", "in SACI", "sequence"};
  for (const host::CallFinding& finding : checker.Findings())
    Require(std::find(std::begin(kOrdered), std::end(kOrdered), finding.rule) != std::end(kOrdered),
            std::string(finding.rule) + ", call " + std::to_string(finding.call) + ": " + finding.what);
}

// Makes the call, or lies about it. What the plug-in then sees in its own variables is the caller's to tell.
template <auto slot, typename Distort, typename... Arguments>
const char* HostileHost::Answer(host::HostCall& call, Distort&& distort, Arguments... arguments) {
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

const char* HostileHost::Tell(host::HostCall& call, const char* error) {
  if (error != nullptr) call.error = error;
  checker.Saw(call, 0);
  RequireKeptRules();
  return error;
}

template <auto slot, typename... Arguments>
const char* HostileHost::Pass(host::HostCall call, Arguments... arguments) {
  const char* const error = Answer<slot>(call, kNothing, arguments...);
  return Tell(call, error);
}

const char* HostileHost::GetValueOfProperty(const char* name) {
  host::HostCall call{.function = "GetValueOfProperty", .number = ++number, .core = core, .subject = name};
  (void)Tell(call, nullptr);
  const Lie lie = NextLie();
  if (lie == Lie::None) return honest.table->getValueOfProperty(&honest, name);
  if (lie == Lie::Refuse) return nullptr;
  Keep(InventedText());
  // A file that the plug-in would read: this machine has some that never end.
  if (std::string_view(name) == "HsmImagePath") Keep(text.empty() ? "" : "/");
  return text.c_str();
}

const char* HostileHost::SetValueOfProperty(const char* name, const char* value) {
  RequireNoSecret(value);
  return Pass<&Table::setValueOfProperty>({.function = "SetValueOfProperty"}, name, value);
}

const char* HostileHost::ResetTarget(int kind) {
  return Pass<&Table::resetTarget>({.function = "ResetTarget"}, kind);
}

const char* HostileHost::ReadMemory(void* elements, std::size_t count, Debugger::Address address, int page,
                                    std::size_t elementSize) {
  host::HostCall call{
      .function = "ReadMemory", .address = Extract(address), .page = page, .elementSize = elementSize};
  const std::size_t size = count * elementSize;
  std::memset(elements, 0, size);
  const auto distort = [&] {
    // The rest stays as the target had it, or zero: never what happened to lie in the buffer.
    const auto bytes = answers.Take(std::min(size, kInventedBytes));
    if (!bytes.empty()) std::memcpy(elements, bytes.data(), bytes.size());
  };
  const char* const error =
      Answer<&Table::readMemory>(call, distort, elements, count, address, page, elementSize);
  call.data = {static_cast<const std::uint8_t*>(elements), size};
  return Tell(call, error);
}

const char* HostileHost::WriteMemory(const void* elements, std::size_t count, Debugger::Address address,
                                     int page, std::size_t elementSize) {
  return Pass<&Table::writeMemory>(
      {.function = "WriteMemory",
       .address = Extract(address),
       .page = page,
       .elementSize = elementSize,
       .data = {static_cast<const std::uint8_t*>(elements), count * elementSize}},
      elements, count, address, page, elementSize);
}

const char* HostileHost::LookupReg(const char* name, Debugger::Address* address) {
  host::HostCall call{.function = "LookupReg", .subject = name};
  const auto distort = [&] { *address = Debugger::Address(answers.Word()); };
  const char* const error = Answer<&Table::lookupReg>(call, distort, name, address);
  call.address = Extract(*address);
  return Tell(call, error);
}

const char* HostileHost::ReadReg(Debugger::Address address, unsigned long long* value) {
  host::HostCall call{.function = "ReadReg", .address = Extract(address)};
  const char* const error = Answer<&Table::readReg>(
      call, [&] { *value = answers.Word(); }, address, value);
  call.value = *value;
  return Tell(call, error);
}

const char* HostileHost::WriteReg(Debugger::Address address, unsigned long long value) {
  return Pass<&Table::writeReg>({.function = "WriteReg", .address = Extract(address), .value = value},
                                address, value);
}

const char* HostileHost::ReportError(const char* message) {
  RequireNoSecret(message);
  return Pass<&Table::reportError>({.function = "ReportError", .subject = message}, message);
}

const char* HostileHost::ReportInfo(const char* message) {
  RequireNoSecret(message);
  return Pass<&Table::reportInfo>({.function = "ReportInfo", .subject = message}, message);
}

const char* HostileHost::Sleep(unsigned int milliseconds) {
  return Pass<&Table::sleep>({.function = "Sleep"}, milliseconds);
}

const char* HostileHost::SetCore(const char* name) {
  const char* const error = Pass<&Table::setCore>({.function = "SetCore", .subject = name}, name);
  if (error == nullptr) core = name;
  return error;
}

const char* HostileHost::SetCoreById(const char* id) {
  const char* const error = Pass<&Table::setCoreById>({.function = "SetCoreById", .subject = id}, id);
  if (error == nullptr) core = id;
  return error;
}

const char* HostileHost::Disconnect(bool option) {
  return Pass<&Table::disconnect>({.function = "Disconnect"}, option);
}

const char* HostileHost::IsConnected(bool* connected) {
  host::HostCall call{.function = "IsConnected"};
  const char* const error = Answer<&Table::isConnected>(
      call, [&] { *connected = !*connected; }, connected);
  call.value = *connected ? 1 : 0;
  return Tell(call, error);
}

const char* HostileHost::Connect(bool option) {
  return Pass<&Table::connect>({.function = "Connect"}, option);
}

const char* HostileHost::ReConnect() {
  return Pass<&Table::reConnect>({.function = "ReConnect"});
}

const char* HostileHost::ReservedFunction(int slot) {
  Require(false, "the reserved position " + std::to_string(slot) + " was called");
  return nullptr;
}

}  // namespace fuzz
