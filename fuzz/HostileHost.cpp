#include "HostileHost.h"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "Require.h"

namespace fuzz {

namespace {

// Ends the waits that have no time-out of their own, which are the host's to end.
constexpr unsigned kMostCallsPerOperation = 20'000;

constexpr int kSecurePortPage = 1;

// Enough for a response header and the data words that the device looks at.
constexpr std::size_t kInventedBytes = 48;

void RequireNoSecret(const char* shown) {
  Require(std::strchr(shown, HostileHost::kSecretMark) == nullptr, "a text shows a password");
}

template <int position>
void Reserved() {
  Require(false, "the reserved position " + std::to_string(position) + " was called");
}

}  // namespace

HostileHost::Lie HostileHost::NextLie() {
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
  for (char& character : invented)
    if (character == kSecretMark) character = '?';
  return invented.substr(0, invented.find('\0'));  // what the plug-in sees of it
}

void HostileHost::BeginOperation() {
  calls = 0;
  owesSwitchBack = false;
  switchedBackAfterRefusal = false;
  refusal.reset();
}

void HostileHost::EndOperation(const char* error) {
  Require(!owesSwitchBack, "the operation ended without the switch back from the security access port");
  if (error != nullptr) RequireNoSecret(error);
  if (!refusal) return;
  Require(error != nullptr, "the host refused with \"" + *refusal + "\", the operation succeeded");
  Require(*refusal == error,
          "the host refused with \"" + *refusal + "\", the operation with \"" + error + "\"");
}

HostileHost::Lie HostileHost::Begin(bool isSwitchBack) {
  Require(!owesSwitchBack || isSwitchBack, "another call came before the switch back to the debug port");
  owesSwitchBack = false;
  if (refusal) {
    Require(isSwitchBack && !switchedBackAfterRefusal, "a call came after \"" + *refusal + "\"");
    switchedBackAfterRefusal = true;
  }
  if (++calls == kMostCallsPerOperation) return Lie::Refuse;
  return NextLie();
}

const char* HostileHost::Refuse(const std::string& reason) {
  if (!refusal) refusal = reason;
  text = reason;
  return text.c_str();
}

template <typename Forward>
const char* HostileHost::Answer(bool isSwitchBack, Forward&& forward) {
  return Answer(isSwitchBack, std::forward<Forward>(forward), [] {});
}

template <typename Forward, typename Distort>
const char* HostileHost::Answer(bool isSwitchBack, Forward&& forward, Distort&& distort) {
  const Lie lie = Begin(isSwitchBack);
  if (lie == Lie::Refuse) return Refuse(InventedText());
  if (lie != Lie::DoNothing)
    if (const char* error = forward()) return Refuse(error);
  if (lie == Lie::RefuseWhenDone) return Refuse(InventedText());
  if (lie == Lie::DoNothing || lie == Lie::Distort) distort();
  return nullptr;
}

struct HostileHost::Entries {
  static HostileHost& Self(HostObject* object) { return static_cast<HostileHost&>(*object); }
  static bool IsDebugPort(const char* core) { return std::string_view(core) == "CS_DAP_0"; }

  const static char* GetValueOfProperty(HostObject* object, const char* name) {
    HostileHost& self = Self(object);
    const Lie lie = self.Begin(false);
    if (lie == Lie::None) return self.honest.table->getValueOfProperty(&self.honest, name);
    if (lie == Lie::Refuse) return nullptr;
    self.text = self.InventedText();
    // A file that the plug-in would read: this machine has some that never end.
    if (std::string_view(name) == "HsmImagePath") self.text = self.text.empty() ? "" : "/";
    return self.text.c_str();
  }

  const static char* SetValueOfProperty(HostObject* object, const char* name, const char* value) {
    HostileHost& self = Self(object);
    RequireNoSecret(value);
    return self.Answer(false,
                       [&] { return self.honest.table->setValueOfProperty(&self.honest, name, value); });
  }

  const static char* ResetTarget(HostObject* object, int kind) {
    HostileHost& self = Self(object);
    return self.Answer(false, [&] { return self.honest.table->resetTarget(&self.honest, kind); });
  }

  const static char* ReadMemory(HostObject* object, void* elements, std::size_t count,
                                Debugger::Address address, int page, std::size_t elementSize) {
    HostileHost& self = Self(object);
    std::memset(elements, 0, count * elementSize);
    const char* error = self.Answer(
        false,
        [&] {
          return self.honest.table->readMemory(&self.honest, elements, count, address, page, elementSize);
        },
        [&] {
          // The rest stays as the target had it, or zero: never what happened to lie in the buffer.
          const auto bytes = self.answers.Take(std::min<std::size_t>(count * elementSize, kInventedBytes));
          if (!bytes.empty()) std::memcpy(elements, bytes.data(), bytes.size());
        });
    self.owesSwitchBack = page == kSecurePortPage;
    return error;
  }

  const static char* WriteMemory(HostObject* object, const void* elements, std::size_t count,
                                 Debugger::Address address, int page, std::size_t elementSize) {
    HostileHost& self = Self(object);
    const char* error = self.Answer(false, [&] {
      return self.honest.table->writeMemory(&self.honest, elements, count, address, page, elementSize);
    });
    self.owesSwitchBack = page == kSecurePortPage;
    return error;
  }

  const static char* LookupReg(HostObject* object, const char* name, Debugger::Address* address) {
    HostileHost& self = Self(object);
    return self.Answer(
        false, [&] { return self.honest.table->lookupReg(&self.honest, name, address); },
        [&] { *address = Debugger::Address(self.answers.Word()); });
  }

  const static char* ReadReg(HostObject* object, Debugger::Address address, unsigned long long* value) {
    HostileHost& self = Self(object);
    return self.Answer(
        false, [&] { return self.honest.table->readReg(&self.honest, address, value); },
        [&] { *value = self.answers.Word(); });
  }

  const static char* WriteReg(HostObject* object, Debugger::Address address, unsigned long long value) {
    HostileHost& self = Self(object);
    return self.Answer(false, [&] { return self.honest.table->writeReg(&self.honest, address, value); });
  }

  const static char* ReportError(HostObject* object, const char* message) {
    HostileHost& self = Self(object);
    RequireNoSecret(message);
    return self.Answer(false, [&] { return self.honest.table->reportError(&self.honest, message); });
  }

  const static char* ReportInfo(HostObject* object, const char* message) {
    HostileHost& self = Self(object);
    RequireNoSecret(message);
    return self.Answer(false, [&] { return self.honest.table->reportInfo(&self.honest, message); });
  }

  const static char* Sleep(HostObject* object, unsigned int milliseconds) {
    HostileHost& self = Self(object);
    return self.Answer(false, [&] { return self.honest.table->sleep(&self.honest, milliseconds); });
  }

  const static char* SetCore(HostObject* object, const char* name) {
    HostileHost& self = Self(object);
    return self.Answer(false, [&] { return self.honest.table->setCore(&self.honest, name); });
  }

  const static char* Disconnect(HostObject* object, bool option) {
    HostileHost& self = Self(object);
    return self.Answer(false, [&] { return self.honest.table->disconnect(&self.honest, option); });
  }

  const static char* IsConnected(HostObject* object, bool* connected) {
    HostileHost& self = Self(object);
    return self.Answer(
        false, [&] { return self.honest.table->isConnected(&self.honest, connected); },
        [&] { *connected = !*connected; });
  }

  const static char* SetCoreById(HostObject* object, const char* id) {
    HostileHost& self = Self(object);
    return self.Answer(IsDebugPort(id), [&] { return self.honest.table->setCoreById(&self.honest, id); });
  }

  const static char* Connect(HostObject* object, bool option) {
    HostileHost& self = Self(object);
    return self.Answer(false, [&] { return self.honest.table->connect(&self.honest, option); });
  }

  const static char* ReConnect(HostObject* object) {
    HostileHost& self = Self(object);
    return self.Answer(false, [&] { return self.honest.table->reConnect(&self.honest); });
  }

  const static HostFunctionTable s_table;
};

const HostFunctionTable HostileHost::Entries::s_table = {
    .getValueOfProperty = GetValueOfProperty,
    .setValueOfProperty = SetValueOfProperty,
    .reserved2to6 = {Reserved<2>, Reserved<3>, Reserved<4>, Reserved<5>, Reserved<6>},
    .resetTarget = ResetTarget,
    .reserved8to9 = {Reserved<8>, Reserved<9>},
    .readMemory = ReadMemory,
    .writeMemory = WriteMemory,
    .lookupReg = LookupReg,
    .readReg = ReadReg,
    .writeReg = WriteReg,
    .reserved15to18 = {Reserved<15>, Reserved<16>, Reserved<17>, Reserved<18>},
    .reportError = ReportError,
    .reportInfo = ReportInfo,
    .reserved21 = Reserved<21>,
    .sleep = Sleep,
    .reserved23to26 = {Reserved<23>, Reserved<24>, Reserved<25>, Reserved<26>},
    .setCore = SetCore,
    .reserved28to32 = {Reserved<28>, Reserved<29>, Reserved<30>, Reserved<31>, Reserved<32>},
    .disconnect = Disconnect,
    .isConnected = IsConnected,
    .reserved35 = Reserved<35>,
    .setCoreById = SetCoreById,
    .connect = Connect,
    .reConnect = ReConnect,
};

HostileHost::HostileHost(HostObject& honestHost, ByteSource source)
    : HostObject{&Entries::s_table}, honest(honestHost), answers(source) {
  ReadHonestCalls();
}

}  // namespace fuzz
