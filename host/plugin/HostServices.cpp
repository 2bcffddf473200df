#include "host/plugin/HostServices.h"

#include <fmt/format.h>

#include <cstring>
#include <span>
#include <stdexcept>
#include <utility>

namespace host {

namespace {

constexpr int kPinReset = 0;  // the one reset kind this host knows

// On the security access port, address 0 of this page is the data register.
constexpr int kSecureDataPage = 1;

std::string_view View(const char* text) {
  return text != nullptr ? std::string_view(text) : std::string_view();
}

std::uint32_t To32(Debugger::Address address) {
  if (!Debugger::Is32Bit(address))
    throw std::runtime_error(fmt::format("address 0x{:x} is wider than 32 bits", Extract(address)));
  return static_cast<std::uint32_t>(Extract(address));
}

void RequireSecureData(Debugger::Address address, int page, std::size_t elementSize) {
  if (Extract(address) == 0 && page == kSecureDataPage && elementSize == sizeof(std::uint32_t)) return;
  throw std::runtime_error(fmt::format(
      "SEC_AP has 32-bit words at address 0 of page {} only, not elements of {} bytes at 0x{:08x} "
      "of page {}",
      kSecureDataPage, elementSize, Extract(address), page));
}

std::size_t ByteCount(std::size_t count, std::size_t elementSize) {
  if (elementSize != 1 && elementSize != 2 && elementSize != 4)
    throw std::runtime_error(fmt::format("access width of {} bytes is not offered", elementSize));
  return count * elementSize;
}

// Answers a slot that the contract reserves. An error text is what every caller of this table understands;
// a null entry would only be a crash.
template <int slot>
const char* ReservedSlot(HostObject*) {
  const static std::string text = fmt::format("this host offers no function {}", slot);
  return text.c_str();
}

template <int slot>
HostFunctionTable::Reserved Reserved() {
  return reinterpret_cast<HostFunctionTable::Reserved>(&ReservedSlot<slot>);
}

}  // namespace

// Counts the call, runs it, and turns what it throws into the error text. `action` may fill in what the call
// has read; it gets the record that will be traced.
template <typename Action>
const char* HostServices::Answer(HostCall call, Action&& action) {
  try {
    CountCall(call);
    std::forward<Action>(action)(call);
    Finish(call);
    return nullptr;
  } catch (const std::exception& error) {
    lastError = error.what();
  }
  try {
    call.error = lastError;
    Finish(call);
  } catch (const std::exception&) {
    // A trace that cannot be written must not hide what failed first.
  }
  return lastError.c_str();
}

void HostServices::CountCall(HostCall& call) {
  call.number = ++callCount;
  call.core = CoreName(current);
  if (fault && fault->call == callCount) throw std::runtime_error(fault->text);
}

void HostServices::Finish(const HostCall& call) {
  for (HostCallObserver* observer : observers) observer->Saw(call, probe.ElapsedNs());
  if (trace != nullptr) trace->Record(call, probe.ElapsedNs());
}

const char* HostServices::Property(const char* name) {
  const char* result = nullptr;
  // This one entry has no error texts: a failure of it can only look like a missing property.
  (void)Answer({.function = "GetValueOfProperty", .subject = View(name)}, [&](HostCall& call) {
    const std::string* value = properties.Find(View(name));
    if (value == nullptr) return;
    call.text = *value;
    result = value->c_str();
  });
  return result;
}

void HostServices::Report(bool isError, const char* message) {
  if (onMessage) onMessage(isError, std::string(View(message)));
}

void HostServices::Select(const char* coreName) {
  const std::optional<Core> core = FindCore(View(coreName));
  if (!core) throw std::runtime_error(fmt::format("there is no core \"{}\"", View(coreName)));
  current = *core;
}

void HostServices::ConnectCurrent() {
  probe.Connect(current);
  connected[static_cast<std::size_t>(current)] = true;
}

void HostServices::ConnectDebugPort() {
  current = Core::DebugPort;
  ConnectCurrent();
}

void HostServices::RequireConnected() const {
  if (!IsConnected(current)) throw std::runtime_error(fmt::format("{} is not connected", CoreName(current)));
}

void HostServices::Read(HostCall& call, void* elements, std::size_t count, Debugger::Address address,
                        int page, std::size_t elementSize) {
  RequireConnected();
  const std::size_t size = ByteCount(count, elementSize);
  if (current == Core::SecureAp) {
    RequireSecureData(address, page, elementSize);
    std::vector<std::uint32_t> words(count);
    probe.PopWords(words);
    std::memcpy(elements, words.data(), size);
  } else {
    probe.ReadMemory(To32(address), {static_cast<std::uint8_t*>(elements), size}, elementSize);
  }
  call.data = {static_cast<const std::uint8_t*>(elements), size};
}

void HostServices::Write(HostCall& call, const void* elements, std::size_t count, Debugger::Address address,
                         int page, std::size_t elementSize) {
  const std::size_t size = ByteCount(count, elementSize);
  call.data = {static_cast<const std::uint8_t*>(elements), size};
  RequireConnected();
  if (current == Core::SecureAp) {
    RequireSecureData(address, page, elementSize);
    std::vector<std::uint32_t> words(count);
    std::memcpy(words.data(), elements, size);
    probe.PushWords(words);
  } else {
    probe.WriteMemory(To32(address), call.data, elementSize);
  }
  bytesWritten += size;
  if (onBytesWritten) onBytesWritten(size);
}

struct HostServices::Entries {
  static HostServices& Self(HostObject* object) { return static_cast<HostServices&>(*object); }

  const static char* GetValueOfProperty(HostObject* object, const char* name) {
    return Self(object).Property(name);
  }

  const static char* SetValueOfProperty(HostObject* object, const char* name, const char* value) {
    HostServices& self = Self(object);
    return self.Answer({.function = "SetValueOfProperty", .subject = View(name), .text = View(value)},
                       [&](HostCall&) { self.properties.Set(View(name), View(value)); });
  }

  const static char* ResetTarget(HostObject* object, int kind) {
    HostServices& self = Self(object);
    return self.Answer({.function = "ResetTarget", .value = static_cast<std::uint64_t>(kind)},
                       [&](HostCall&) {
                         if (kind != kPinReset)
                           throw std::runtime_error(fmt::format("reset kind {} is not offered", kind));
                         self.probe.PinReset();
                       });
  }

  const static char* ReadMemory(HostObject* object, void* elements, std::size_t count,
                                Debugger::Address address, int page, std::size_t elementSize) {
    HostServices& self = Self(object);
    return self.Answer({.function = "ReadMemory", .address = Extract(address), .elementSize = elementSize},
                       [&](HostCall& call) { self.Read(call, elements, count, address, page, elementSize); });
  }

  const static char* WriteMemory(HostObject* object, const void* elements, std::size_t count,
                                 Debugger::Address address, int page, std::size_t elementSize) {
    HostServices& self = Self(object);
    return self.Answer(
        {.function = "WriteMemory", .address = Extract(address), .elementSize = elementSize},
        [&](HostCall& call) { self.Write(call, elements, count, address, page, elementSize); });
  }

  const static char* LookupReg(HostObject* object, const char* name, Debugger::Address* address) {
    HostServices& self = Self(object);
    return self.Answer({.function = "LookupReg", .subject = View(name)}, [&](HostCall& call) {
      const std::optional<std::uint32_t> found = self.probe.FindRegister(View(name));
      if (!found) throw std::runtime_error(fmt::format("there is no register \"{}\"", View(name)));
      *address = Debugger::Address(*found);
      call.address = *found;
    });
  }

  const static char* ReadReg(HostObject* object, Debugger::Address address, unsigned long long* value) {
    HostServices& self = Self(object);
    return self.Answer({.function = "ReadReg", .address = Extract(address)}, [&](HostCall& call) {
      self.RequireConnected();
      *value = self.probe.ReadRegister(To32(address));
      call.value = *value;
    });
  }

  const static char* WriteReg(HostObject* object, Debugger::Address address, unsigned long long value) {
    HostServices& self = Self(object);
    return self.Answer({.function = "WriteReg", .address = Extract(address), .value = value}, [&](HostCall&) {
      self.RequireConnected();
      if (value > 0xFFFFFFFF)
        throw std::runtime_error(fmt::format("register value 0x{:x} is wider than 32 bits", value));
      self.probe.WriteRegister(To32(address), static_cast<std::uint32_t>(value));
    });
  }

  const static char* ReportError(HostObject* object, const char* message) {
    HostServices& self = Self(object);
    return self.Answer({.function = "ReportError", .subject = View(message)},
                       [&](HostCall&) { self.Report(true, message); });
  }

  const static char* ReportInfo(HostObject* object, const char* message) {
    HostServices& self = Self(object);
    return self.Answer({.function = "ReportInfo", .subject = View(message)},
                       [&](HostCall&) { self.Report(false, message); });
  }

  const static char* Sleep(HostObject* object, unsigned int milliseconds) {
    HostServices& self = Self(object);
    return self.Answer({.function = "Sleep", .value = milliseconds},
                       [&](HostCall&) { self.probe.Sleep(milliseconds); });
  }

  const static char* SetCore(HostObject* object, const char* name) {
    HostServices& self = Self(object);
    return self.Answer({.function = "SetCore", .subject = View(name)}, [&](HostCall&) { self.Select(name); });
  }

  const static char* SetCoreById(HostObject* object, const char* id) {
    HostServices& self = Self(object);
    return self.Answer({.function = "SetCoreById", .subject = View(id)}, [&](HostCall&) { self.Select(id); });
  }

  const static char* Disconnect(HostObject* object, bool option) {
    HostServices& self = Self(object);
    return self.Answer({.function = "Disconnect", .value = option}, [&](HostCall&) {
      bool& isConnected = self.connected[static_cast<std::size_t>(self.current)];
      if (isConnected) self.probe.Disconnect(self.current);
      isConnected = false;
    });
  }

  const static char* IsConnected(HostObject* object, bool* isConnected) {
    HostServices& self = Self(object);
    return self.Answer({.function = "IsConnected"}, [&](HostCall& call) {
      *isConnected = self.IsConnected(self.current);
      call.value = *isConnected;
    });
  }

  const static char* Connect(HostObject* object, bool option) {
    HostServices& self = Self(object);
    return self.Answer({.function = "Connect", .value = option}, [&](HostCall&) { self.ConnectCurrent(); });
  }

  const static char* ReConnect(HostObject* object) {
    HostServices& self = Self(object);
    return self.Answer({.function = "ReConnect"}, [&](HostCall&) { self.ConnectCurrent(); });
  }

  const static HostFunctionTable s_table;
};

const HostFunctionTable HostServices::Entries::s_table = {
    .getValueOfProperty = GetValueOfProperty,
    .setValueOfProperty = SetValueOfProperty,
    .reserved2to6 = {Reserved<2>(), Reserved<3>(), Reserved<4>(), Reserved<5>(), Reserved<6>()},
    .resetTarget = ResetTarget,
    .reserved8to9 = {Reserved<8>(), Reserved<9>()},
    .readMemory = ReadMemory,
    .writeMemory = WriteMemory,
    .lookupReg = LookupReg,
    .readReg = ReadReg,
    .writeReg = WriteReg,
    .reserved15to18 = {Reserved<15>(), Reserved<16>(), Reserved<17>(), Reserved<18>()},
    .reportError = ReportError,
    .reportInfo = ReportInfo,
    .reserved21 = Reserved<21>(),
    .sleep = Sleep,
    .reserved23to26 = {Reserved<23>(), Reserved<24>(), Reserved<25>(), Reserved<26>()},
    .setCore = SetCore,
    .reserved28to32 = {Reserved<28>(), Reserved<29>(), Reserved<30>(), Reserved<31>(), Reserved<32>()},
    .disconnect = Disconnect,
    .isConnected = IsConnected,
    .reserved35 = Reserved<35>(),
    .setCoreById = SetCoreById,
    .connect = Connect,
    .reConnect = ReConnect,
};

HostServices::HostServices(DebugProbe& debugProbe, PropertyStore& propertyStore)
    : probe(debugProbe), properties(propertyStore) {
  table = &Entries::s_table;
}

}  // namespace host
