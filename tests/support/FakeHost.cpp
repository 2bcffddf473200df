#include "FakeHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

// Positions stand for addresses, 4 bytes apart from kFirstRegister on.
constexpr std::array<const char*, 6> s_registerNames = {
    "SECAP_TXCTL", "SECAP_RXCTL", "SECAP_RSTCTL", "CFGAP_DEVICESTATUS", "CFGAP_DEVICEID", "CFGAP_PARTID"};
constexpr unsigned long long kFirstRegister = 0x0F000000;

constexpr std::size_t kElementsShown = 8;

std::string Hex(std::uint64_t value, int digits = 0) {
  char text[24];
  std::snprintf(text, sizeof text, "%0*llX", digits, static_cast<unsigned long long>(value));
  return text;
}

std::string RegisterName(std::uint64_t address) {
  const std::uint64_t index = (address - kFirstRegister) / 4;
  return index < s_registerNames.size() ? s_registerNames[index] : "@0x" + Hex(address);
}

std::string MemoryLine(const char* call, const std::string& core, std::uint64_t address, int page,
                       std::size_t size, std::size_t count) {
  return std::string(call) + " " + core + " @0x" + Hex(address) + " page " + std::to_string(page) + " size " +
         std::to_string(size) + " x" + std::to_string(count);
}

}  // namespace

template <std::size_t position>
void FakeHost::Reserved() {
  std::fprintf(stderr, "reserved host function %zu was called\n", position);
  std::abort();
}

HostFunctionTable FakeHost::MakeTable() {
  HostFunctionTable table{};
  const auto self = [](HostObject* caller) -> FakeHost& { return *static_cast<Object*>(caller)->host; };
  static_assert(std::is_empty_v<decltype(self)>);
  using Self = decltype(self);

  table.getValueOfProperty = [](HostObject* caller, const char* name) -> const char* {
    FakeHost& host = Self{}(caller);
    if (host.Begin(std::string("GetProperty ") + name) != nullptr) return nullptr;
    const auto property = host.properties.find(name);
    return property == host.properties.end() ? nullptr : property->second.c_str();
  };
  table.setValueOfProperty = [](HostObject* caller, const char* name, const char* value) -> const char* {
    FakeHost& host = Self{}(caller);
    if (const char* error = host.Begin(std::string("SetProperty ") + name + " " + value)) return error;
    host.properties[name] = value;
    return nullptr;
  };
  table.resetTarget = [](HostObject* caller, int kind) -> const char* {
    FakeHost& host = Self{}(caller);
    if (const char* error = host.Begin("ResetTarget " + std::to_string(kind))) return error;
    host.RestartRom(host.bootStatusAfterPinReset);
    return nullptr;
  };
  table.readMemory = [](HostObject* caller, void* elements, std::size_t count, Debugger::Address address,
                        int page, std::size_t size) {
    return Self{}(caller).ReadMemory(elements, count, Extract(address), page, size);
  };
  table.writeMemory = [](HostObject* caller, const void* elements, std::size_t count,
                         Debugger::Address address, int page, std::size_t size) {
    return Self{}(caller).WriteMemory(elements, count, Extract(address), page, size);
  };
  table.lookupReg = [](HostObject* caller, const char* name, Debugger::Address* address) -> const char* {
    FakeHost& host = Self{}(caller);
    if (const char* error = host.Begin(std::string("LookupReg ") + name)) return error;
    const auto found = std::find(s_registerNames.begin(), s_registerNames.end(), std::string(name));
    if (found == s_registerNames.end()) return host.Refuse(std::string("no register ") + name);
    *address =
        Debugger::Address(kFirstRegister + 4ULL * static_cast<unsigned>(found - s_registerNames.begin()));
    return nullptr;
  };
  table.readReg = [](HostObject* caller, Debugger::Address address, unsigned long long* value) {
    return Self{}(caller).ReadRegister(address, value);
  };
  table.writeReg = [](HostObject* caller, Debugger::Address address, unsigned long long value) {
    return Self{}(caller).WriteRegister(address, value);
  };
  table.reportError = [](HostObject* caller, const char* message) {
    return Self{}(caller).Begin(std::string("ReportError ") + message);
  };
  table.reportInfo = [](HostObject* caller, const char* message) {
    return Self{}(caller).Begin(std::string("ReportInfo ") + message);
  };
  table.sleep = [](HostObject* caller, unsigned milliseconds) {
    return Self{}(caller).Begin("Sleep " + std::to_string(milliseconds));
  };
  table.setCore = [](HostObject* caller, const char* name) {
    return Self{}(caller).SelectCore("SetCore ", name, {"Cortex"});
  };
  table.setCoreById = [](HostObject* caller, const char* id) {
    return Self{}(caller).SelectCore("SetCoreById ", id, {"CS_DAP_0", "SEC_AP"});
  };
  table.connect = [](HostObject* caller, bool option) -> const char* {
    FakeHost& host = Self{}(caller);
    if (const char* error = host.Begin(option ? "Connect true" : "Connect false")) return error;
    host.connectedCores.insert(host.currentCore);
    return nullptr;
  };
  table.reConnect = [](HostObject* caller) -> const char* {
    FakeHost& host = Self{}(caller);
    if (const char* error = host.Begin("ReConnect")) return error;
    host.connectedCores.insert(host.currentCore);
    return nullptr;
  };
  table.disconnect = [](HostObject* caller, bool option) -> const char* {
    FakeHost& host = Self{}(caller);
    if (const char* error = host.Begin(option ? "Disconnect true" : "Disconnect false")) return error;
    host.connectedCores.erase(host.currentCore);
    return nullptr;
  };
  table.isConnected = [](HostObject* caller, bool* connected) -> const char* {
    FakeHost& host = Self{}(caller);
    if (const char* error = host.Begin("IsConnected")) return error;
    *connected = host.connectedCores.count(host.currentCore) != 0;
    return nullptr;
  };

  const auto reserve = [](auto& slots, auto... functions) {
    const HostFunctionTable::Reserved all[] = {functions...};
    std::copy(std::begin(all), std::end(all), slots);
  };
  reserve(table.reserved2to6, &Reserved<2>, &Reserved<3>, &Reserved<4>, &Reserved<5>, &Reserved<6>);
  reserve(table.reserved8to9, &Reserved<8>, &Reserved<9>);
  reserve(table.reserved15to18, &Reserved<15>, &Reserved<16>, &Reserved<17>, &Reserved<18>);
  table.reserved21 = &Reserved<21>;
  reserve(table.reserved23to26, &Reserved<23>, &Reserved<24>, &Reserved<25>, &Reserved<26>);
  reserve(table.reserved28to32, &Reserved<28>, &Reserved<29>, &Reserved<30>, &Reserved<31>, &Reserved<32>);
  table.reserved35 = &Reserved<35>;
  return table;
}

FakeHost::FakeHost()
    : properties{{"SectorSize", "0x800"},
                 {"CcfgBase", "0x4E020000"},
                 {"CcfgSize", "0x800"},
                 {"CcfgUserRecordSize", "0x80"},
                 {"ccfg.userRecord.crc32Info", "0x700:0x7C"},
                 {"ScfgBase", "0x4E040000"},
                 {"ScfgSize", "0x400"},
                 {"OtpBase", "0x4E020800"},
                 {"OtpSize", "0x100"},
                 {"FlashEraseSetting", "Chip Erase"},
                 {"DeviceInfoRevisionTranslation", "0x0BB77:1.0:A:0x1BB77:2.0:B"},
                 {"DeviceInfoFlashSizeTranslation", "*:*:*:0x80000"},
                 {"DeviceInfoRAMSizeTranslation", "*:*:*:0x9000"}},
      registers{{"CFGAP_DEVICEID", 0x1BB7702F}, {"CFGAP_PARTID", 0x80010203}} {
  static const HostFunctionTable table = MakeTable();
  object.table = &table;
  object.host = this;
}

void FakeHost::ScriptRegister(const std::string& name, std::deque<std::uint64_t> values) {
  registerScripts[name] = std::move(values);
}

void FakeHost::ReplyOnce(std::uint8_t id, SaciReply reply) {
  queuedReplies[id].push_back(std::move(reply));
}

void FakeHost::ReplyAlways(std::uint8_t id, SaciReply reply) {
  standingReplies[id] = std::move(reply);
}

void FakeHost::FailCall(unsigned nth, std::string text) {
  failAfter = nth;
  failText = std::move(text);
}

void FakeHost::FailNext(std::string prefix, std::string text) {
  failPrefixes[std::move(prefix)] = std::move(text);
}

void FakeHost::ForgetCalls() {
  calls.clear();
  // A command that is still under way stays, so that the rest of it finds its place.
  if (commandOpen || streaming)
    commands.erase(commands.begin(), commands.end() - 1);
  else
    commands.clear();
}

const char* FakeHost::Refuse(const std::string& text) {
  return texts.emplace_back(text).c_str();
}

const char* FakeHost::Begin(const std::string& line) {
  calls.push_back(line);
  if (failAfter != 0 && --failAfter == 0) {
    faultInjected = true;
    return Refuse(failText);
  }
  const auto prefix = std::find_if(failPrefixes.begin(), failPrefixes.end(),
                                   [&](const auto& entry) { return line.starts_with(entry.first); });
  if (prefix == failPrefixes.end()) return nullptr;
  faultInjected = true;
  const char* error = Refuse(prefix->second);
  failPrefixes.erase(prefix);
  return error;
}

const char* FakeHost::SelectCore(const char* call, const std::string& name,
                                 const std::set<std::string>& known) {
  if (const char* error = Begin(call + name)) return error;
  if (known.count(name) == 0) {
    ADD_FAILURE() << call << name << ": there is no such core";
    return Refuse("no such core");
  }
  currentCore = name;
  return nullptr;
}

const char* FakeHost::ReadRegister(Debugger::Address address, unsigned long long* value) {
  const std::string name = RegisterName(Extract(address));
  if (const char* error = Begin("ReadReg " + name)) return error;
  if (currentCore != "CS_DAP_0" || connectedCores.count(currentCore) == 0) {
    ADD_FAILURE() << "ReadReg " << name << " through " << currentCore;
    return Refuse("no register access");
  }
  *value = RegisterValue(name);
  return nullptr;
}

const char* FakeHost::WriteRegister(Debugger::Address address, unsigned long long value) {
  const std::string name = RegisterName(Extract(address));
  if (const char* error = Begin("WriteReg " + name + " 0x" + Hex(value))) return error;
  if (currentCore != "CS_DAP_0" || connectedCores.count(currentCore) == 0) {
    ADD_FAILURE() << "WriteReg " << name << " through " << currentCore;
    return Refuse("no register access");
  }
  if (name == "SECAP_TXCTL") {
    EXPECT_TRUE(value == 0 || value == 2) << "SECAP_TXCTL is written as a whole: start flag or nothing";
    txFlags = static_cast<std::uint32_t>(value);
  } else if (name == "SECAP_RSTCTL" && value == 0x5C) {
    RestartRom(bootStatusAfterResetRequest);
  } else {
    ADD_FAILURE() << "WriteReg " << name << " 0x" << Hex(value) << " does nothing";
  }
  return nullptr;
}

std::uint64_t FakeHost::RegisterValue(const std::string& name) {
  const auto script = registerScripts.find(name);
  if (script != registerScripts.end() && !script->second.empty()) {
    const std::uint64_t value = script->second.front();
    if (script->second.size() > 1) script->second.pop_front();
    return value;
  }
  if (name == "SECAP_TXCTL") {
    const bool full = txFullPolls != 0;
    if (full) --txFullPolls;
    return txFlags | (full ? 1U : 0U);
  }
  if (name == "SECAP_RXCTL") return RxFlags();
  if (name == "CFGAP_DEVICESTATUS")
    return (ahbApEnabled ? 0x01000000U : 0U) | static_cast<std::uint32_t>(bootStatus << 8) | lifeCycle;
  const auto constant = registers.find(name);
  return constant == registers.end() ? 0 : constant->second;
}

const char* FakeHost::ReadMemory(void* elements, std::size_t count, std::uint64_t address, int page,
                                 std::size_t size) {
  const std::string line = MemoryLine("ReadMemory", currentCore, address, page, size, count);
  if (const char* error = Begin(line)) return error;
  EXPECT_NE(count, 0U) << line << ": an empty transfer is no transfer";
  if (connectedCores.count(currentCore) == 0) {
    ADD_FAILURE() << line << " while not connected";
    return Refuse("not connected");
  }
  if (currentCore != "SEC_AP") {
    auto* bytes = static_cast<std::uint8_t*>(elements);
    for (std::size_t i = 0; i < count * size; ++i) {
      const auto stored = memory.find(address + i);
      const auto flip = readFlips.find(address + i);
      const unsigned value =
          (stored == memory.end() ? 0U : stored->second) ^ (flip == readFlips.end() ? 0U : flip->second);
      bytes[i] = static_cast<std::uint8_t>(value);
    }
    return nullptr;
  }

  EXPECT_TRUE(address == 0 && page == 1 && size == 4) << line;
  if (responses.empty() || !responses.front().seenReady || responses.front().words.size() < count) {
    ADD_FAILURE() << line << ": the response is not ready or not that long";
    return Refuse("no data on the port");
  }
  Response& response = responses.front();
  for (std::size_t i = 0; i < count; ++i) {
    std::memcpy(static_cast<std::uint8_t*>(elements) + 4 * i, &response.words.front(), 4);
    response.words.pop_front();
  }
  if (response.words.empty()) responses.pop_front();
  return nullptr;
}

const char* FakeHost::WriteMemory(const void* elements, std::size_t count, std::uint64_t address, int page,
                                  std::size_t size) {
  const std::string line = MemoryLine("WriteMemory", currentCore, address, page, size, count);
  const auto* bytes = static_cast<const std::uint8_t*>(elements);
  std::string shown = line + ":";
  for (std::size_t i = 0; i < std::min(count, kElementsShown); ++i) {
    std::uint32_t element = 0;
    std::memcpy(&element, bytes + i * size, std::min<std::size_t>(size, 4));
    shown += " " + Hex(element, static_cast<int>(2 * size));
  }
  if (count > kElementsShown) shown += " ...";
  if (const char* error = Begin(shown)) return error;
  EXPECT_NE(count, 0U) << line << ": an empty transfer is no transfer";
  if (connectedCores.count(currentCore) == 0) {
    ADD_FAILURE() << line << " while not connected";
    return Refuse("not connected");
  }
  if (currentCore != "SEC_AP") {
    for (std::size_t i = 0; i < count * size; ++i) memory[address + i] = bytes[i];
    return nullptr;
  }

  EXPECT_TRUE(address == 0 && page == 1 && size == 4) << line;
  Words words(count);
  if (count != 0) std::memcpy(words.data(), bytes, 4 * count);
  ReceiveWords(words);
  return nullptr;
}
