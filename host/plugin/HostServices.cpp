#include "host/plugin/HostServices.h"

#include <fmt/format.h>

#include <new>
#include <stdexcept>
#include <string_view>

namespace host {

namespace {

constexpr std::string_view kPropertyLookup = "GetValueOfProperty";

std::string_view View(const char* text) {
  return text != nullptr ? std::string_view(text) : std::string_view();
}

}  // namespace

HostServices::HostServices(DebugProbe& debugProbe, PropertyStore& propertyStore)
    : probe(debugProbe), properties(propertyStore), target(debugProbe) {
  const static HostFunctionTable s_table = HostTable<HostServices>::Make();
  table = &s_table;
}

void HostServices::ConnectDebugPort() {
  target.Select(CoreName(Core::DebugPort));
  target.Connect();
}

// Counts the call, runs it, and turns what it throws into the error text. `action` may fill in what the call
// has read; it gets the record that the observers will see.
template <typename Action>
const char* HostServices::Answer(HostCall call, Action&& action) {
  const char* error = nullptr;
  const std::uint64_t roundTrips = probe.RoundTrips();
  try {
    Admit(call);
    std::forward<Action>(action)(call);
  } catch (const std::exception& failure) {
    error = Keep(failure.what());
  } catch (...) {
    error = Keep("the host failed without a reason");
  }
  if (error != nullptr) call.error = error;
  call.roundTrips = probe.RoundTrips() - roundTrips;
  Tell([&](HostCallObserver& observer) { observer.Saw(call, probe.ElapsedNs()); });
  return error;
}

void HostServices::Admit(HostCall& call) {
  call.number = ++callCount;
  call.core = CoreName(target.Current());
  if (IsCancelled() && call.function != kPropertyLookup)
    throw std::runtime_error(std::string(kCancelledText));
  for (const HostFault& fault : faults)
    if (fault.call == callCount) throw std::runtime_error(fault.text);
}

// Where there is no memory for a copy, the failure is told in words that need none.
const char* HostServices::Keep(const char* text) noexcept {
  try {
    lastError = text;
    return lastError.c_str();
  } catch (const std::bad_alloc&) {
    return "the host is out of memory";
  }
}

template <typename Telling>
void HostServices::Tell(Telling&& telling) noexcept {
  for (HostCallObserver* observer : observers) {
    try {
      telling(*observer);
    } catch (...) {
      // Whoever only looks on cannot make a call fail.
    }
  }
}

void HostServices::TellBegin(const PluginCall& call) noexcept {
  Tell([&](HostCallObserver& observer) { observer.Begins(call, probe.ElapsedNs()); });
}

void HostServices::TellEnd(const PluginCall& call) noexcept {
  Tell([&](HostCallObserver& observer) { observer.Ends(call, probe.ElapsedNs()); });
}

// This one function has no error texts: a failure of it can only look like a missing property.
const char* HostServices::GetValueOfProperty(const char* name) {
  const char* result = nullptr;
  (void)Answer({.function = kPropertyLookup, .subject = View(name)}, [&](HostCall& call) {
    const std::string* value = properties.Find(View(name));
    if (value == nullptr) return;
    call.text = *value;
    result = value->c_str();
  });
  return result;
}

const char* HostServices::SetValueOfProperty(const char* name, const char* value) {
  return Answer({.function = "SetValueOfProperty", .subject = View(name), .text = View(value)},
                [&](HostCall&) { properties.Set(View(name), View(value)); });
}

const char* HostServices::ResetTarget(int kind) {
  return Answer({.function = "ResetTarget", .value = static_cast<std::uint64_t>(kind)},
                [&](HostCall&) { target.Reset(kind); });
}

const char* HostServices::ReadMemory(void* elements, std::size_t count, Debugger::Address address, int page,
                                     std::size_t elementSize) {
  const TargetAccess::Range range{address, page, count, elementSize};
  return Answer(
      {.function = "ReadMemory", .address = Extract(address), .page = page, .elementSize = elementSize},
      [&](HostCall& call) {
        target.Read(range, elements);
        call.data = {static_cast<const std::uint8_t*>(elements), range.Bytes()};
      });
}

const char* HostServices::WriteMemory(const void* elements, std::size_t count, Debugger::Address address,
                                      int page, std::size_t elementSize) {
  const TargetAccess::Range range{address, page, count, elementSize};
  return Answer(
      {.function = "WriteMemory", .address = Extract(address), .page = page, .elementSize = elementSize},
      [&](HostCall& call) {
        call.data = {static_cast<const std::uint8_t*>(elements), range.Bytes()};
        target.Write(range, elements);
        bytesWritten += range.Bytes();
        if (onBytesWritten) onBytesWritten(range.Bytes());
      });
}

const char* HostServices::LookupReg(const char* name, Debugger::Address* address) {
  return Answer({.function = "LookupReg", .subject = View(name)}, [&](HostCall& call) {
    const std::uint32_t found = target.FindRegister(View(name));
    *address = Debugger::Address(found);
    call.address = found;
  });
}

const char* HostServices::ReadReg(Debugger::Address address, unsigned long long* value) {
  return Answer({.function = "ReadReg", .address = Extract(address)}, [&](HostCall& call) {
    *value = target.ReadRegister(address);
    call.value = *value;
  });
}

const char* HostServices::WriteReg(Debugger::Address address, unsigned long long value) {
  return Answer({.function = "WriteReg", .address = Extract(address), .value = value},
                [&](HostCall&) { target.WriteRegister(address, value); });
}

const char* HostServices::ReportError(const char* message) {
  return Answer({.function = "ReportError", .subject = View(message)},
                [&](HostCall&) { Report(true, View(message)); });
}

const char* HostServices::ReportInfo(const char* message) {
  return Answer({.function = "ReportInfo", .subject = View(message)},
                [&](HostCall&) { Report(false, View(message)); });
}

void HostServices::Report(bool isError, std::string_view message) {
  if (onMessage) onMessage(isError, std::string(message));
}

const char* HostServices::Sleep(unsigned int milliseconds) {
  return Answer({.function = "Sleep", .value = milliseconds}, [&](HostCall&) { probe.Sleep(milliseconds); });
}

const char* HostServices::SetCore(const char* name) {
  return Answer({.function = "SetCore", .subject = View(name)},
                [&](HostCall&) { target.Select(View(name)); });
}

const char* HostServices::SetCoreById(const char* id) {
  return Answer({.function = "SetCoreById", .subject = View(id)},
                [&](HostCall&) { target.Select(View(id)); });
}

const char* HostServices::Disconnect(bool option) {
  return Answer({.function = "Disconnect", .value = option}, [&](HostCall&) { target.Disconnect(); });
}

const char* HostServices::IsConnected(bool* isConnected) {
  return Answer({.function = "IsConnected"}, [&](HostCall& call) {
    *isConnected = target.IsConnected(CurrentCore());
    call.value = *isConnected;
  });
}

const char* HostServices::Connect(bool option) {
  return Answer({.function = "Connect", .value = option}, [&](HostCall&) { target.Connect(); });
}

const char* HostServices::ReConnect() {
  return Answer({.function = "ReConnect"}, [&](HostCall&) { target.Connect(); });
}

const char* HostServices::ReservedFunction(int slot) {
  return Answer({.function = "reserved function", .value = static_cast<std::uint64_t>(slot)}, [&](HostCall&) {
    throw std::runtime_error(fmt::format("this host offers no function {}", slot));
  });
}

}  // namespace host
