#include "FakeHost.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <sstream>
#include <utility>

namespace {

// Positions stand for addresses, 4 bytes apart from kFirstRegister on.
constexpr std::array<const char*, 6> s_registerNames = {
    "SECAP_TXCTL", "SECAP_RXCTL", "SECAP_RSTCTL", "CFGAP_DEVICESTATUS", "CFGAP_DEVICEID", "CFGAP_PARTID"};
constexpr unsigned long long kFirstRegister = 0x0F000000;

constexpr std::size_t kElementsShown = 8;

std::string RegisterName(Debugger::Address address) {
  const std::uint64_t index = (Extract(address) - kFirstRegister) / 4;
  return index < s_registerNames.size() ? s_registerNames[index] : fmt::format("@0x{:X}", Extract(address));
}

std::string MemoryLine(const char* call, const std::string& core, std::uint64_t address, int page,
                       std::size_t size, std::size_t count) {
  return fmt::format("{} {} @0x{:X} page {} size {} x{}", call, core, address, page, size, count);
}

}  // namespace

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

// A complete description of the smallest chip, each setting at a value that does nothing unusual.
FakeHost::FakeHost() : HostObject{nullptr} {
  const static HostFunctionTable s_table = host::HostTable<FakeHost>::Make();
  table = &s_table;
  Set("SectorSize=0x800; CcfgBase=0x4E020000; CcfgSize=0x800; CcfgUserRecordSize=0x80; ScfgBase=0x4E040000");
  Set("ScfgSize=0x400; OtpBase=0x4E020800; OtpSize=0x100");
  Set("DeviceInfoRevisionTranslation=0x1BB77:1.0:A:0x0BB98:1.0:B:0x1BB98:2.0:E:0x0BBC5:1.0:A:0x0BBCC:1.0:A");
  Set("DeviceInfoFlashSizeTranslation=*:*:*:0x80000; DeviceInfoRAMSizeTranslation=*:*:*:0x9000");
  Set("FlashEraseSetting=Chip Erase; ImageVerificationSetting=0; FlashPageToggle=0; FlashPages=");
  Set("FlashPagesFilledWith=0; FlashPagesFilledWithValue=0xFF");
  Set("PermissionsSetting=1; CcfgPermissions=; ScfgPermissions=");
  Set("CcfgCrcFields=ccfg.bootCfg.crc32,ccfg.crc32,ccfg.userRecord.crc32,ccfg.debugCfg.crc32");
  Set("ccfg.bootCfg.crc32Info=0x0:0xC; ccfg.crc32Info=0x10:0x6EC; ccfg.userRecord.crc32Info=0x700:0x7C");
  Set("ccfg.debugCfg.crc32Info=0x7D0:0x2C; CcfgOverwriteAuthorizationFieldsToggle=0");
  Set("CcfgOverwriteAuthorizationFieldsTypeChoicelist=Debug always allowed");
  Set("CcfgOverwriteAuthorizationFieldsPasswordId=; CcfgOverwriteAuthorizationFieldsPasswordHash=");
  Set("ScfgCrcFields=scfg.crc32; scfg.crc32Info=0x0:0xE4; scfg2.crc32Info=0x4:0xDC");
  Set("DebugPasswordFormatList=Text; DebugPassword=open sesame; DebugPasswordHex=0A1");
}

void FakeHost::Set(const std::string& settings) {
  std::istringstream stream(settings);
  for (std::string setting; std::getline(stream >> std::ws, setting, ';');) {
    const std::size_t mark = setting.find('=');
    properties[setting.substr(0, mark)] = setting.substr(mark + 1);
  }
}

void FakeHost::ForgetCalls() {
  calls.clear();
  events.clear();
  // A command that is still under way stays, so that the rest of it finds its place.
  commands.erase(commands.begin(), commands.end() - (commandOpen || streaming ? 1 : 0));
}

std::vector<std::string> FakeHost::Plot(const std::vector<std::string>& prefixes) const {
  std::vector<std::string> plot;
  std::copy_if(events.begin(), events.end(), std::back_inserter(plot), [&](const std::string& event) {
    return std::any_of(prefixes.begin(), prefixes.end(),
                       [&](const std::string& prefix) { return event.starts_with(prefix); });
  });
  return plot;
}

const char* FakeHost::Begin(const std::string& call) {
  calls.push_back(call);
  const auto prefix = std::find_if(failPrefixes.begin(), failPrefixes.end(),
                                   [&](const auto& entry) { return call.starts_with(entry.first); });
  if (prefix == failPrefixes.end()) return nullptr;
  faultInjected = true;
  const char* error = Refuse(prefix->second);
  failPrefixes.erase(prefix);
  return error;
}

const char* FakeHost::Event(const std::string& callPrefix, const std::string& event) {
  events.push_back(event);
  return Begin(callPrefix + event);
}

const char* FakeHost::RefuseAsBreach(const std::string& text) {
  ADD_FAILURE() << text;
  return Refuse(text);
}

const char* FakeHost::GetValueOfProperty(const char* name) {
  calls.push_back(std::string("GetProperty ") + name);
  const auto property = properties.find(name);
  return property == properties.end() ? nullptr : property->second.c_str();
}

const char* FakeHost::SetValueOfProperty(const char* name, const char* value) {
  const std::string call = std::string("SetProperty ") + name + " " + value;
  if (!call.starts_with("SetProperty DeviceInfo")) events.push_back(call);
  if (call.starts_with("SetProperty DeviceInfoRevision")) events.emplace_back("identify");
  if (const char* error = Begin(call)) return error;
  properties[name] = value;
  return nullptr;
}

const char* FakeHost::ResetTarget(int kind) {
  if (const char* error = Event("", "ResetTarget " + std::to_string(kind))) return error;
  RestartRom(bootStatusAfterPinReset);
  return nullptr;
}

const char* FakeHost::LookupReg(const char* name, Debugger::Address* address) {
  if (const char* error = Begin(std::string("LookupReg ") + name)) return error;
  const auto found = std::find(s_registerNames.begin(), s_registerNames.end(), std::string(name));
  if (found == s_registerNames.end()) return Refuse(std::string("no register ") + name);
  *address =
      Debugger::Address(kFirstRegister + 4ULL * static_cast<unsigned>(found - s_registerNames.begin()));
  return nullptr;
}

const char* FakeHost::SelectCore(const char* call, const std::string& name,
                                 const std::set<std::string>& known) {
  if (const char* error = Begin(call + name)) return error;
  if (known.count(name) == 0) return RefuseAsBreach(call + name + ": there is no such core");
  currentCore = name;
  return nullptr;
}

// The connection of SEC_AP is part of a transfer.
const char* FakeHost::ConnectCurrent(const std::string& call) {
  if (currentCore != "SEC_AP") events.push_back(currentCore + " " + call);
  if (const char* error = Begin(call)) return error;
  connectedCores.insert(currentCore);
  return nullptr;
}

const char* FakeHost::Disconnect(bool option) {
  const std::string call = option ? "Disconnect true" : "Disconnect false";
  events.push_back(currentCore + " " + call);
  if (const char* error = Begin(call)) return error;
  connectedCores.erase(currentCore);
  return nullptr;
}

const char* FakeHost::IsConnected(bool* connected) {
  if (const char* error = Begin("IsConnected")) return error;
  *connected = connectedCores.count(currentCore) != 0;
  return nullptr;
}

const char* FakeHost::ReadReg(Debugger::Address address, unsigned long long* value) {
  const std::string call = "ReadReg " + RegisterName(address);
  if (const char* error = Begin(call)) return error;
  if (currentCore != "CS_DAP_0" || connectedCores.count(currentCore) == 0)
    return RefuseAsBreach(call + " through " + currentCore);
  *value = RegisterValue(RegisterName(address));
  return nullptr;
}

const char* FakeHost::WriteReg(Debugger::Address address, unsigned long long value) {
  const std::string name = RegisterName(address);
  const std::string call = fmt::format("WriteReg {} 0x{:X}", name, value);
  if (name == "SECAP_RSTCTL") events.push_back(fmt::format("{} reset request 0x{:X}", currentCore, value));
  if (const char* error = Begin(call)) return error;
  if (currentCore != "CS_DAP_0" || connectedCores.count(currentCore) == 0)
    return RefuseAsBreach(call + " through " + currentCore);
  if (name == "SECAP_TXCTL" && (value == 0 || value == 2)) {
    txFlags = static_cast<std::uint32_t>(value);
  } else if (name == "SECAP_RSTCTL" && value == 0x5C) {
    RestartRom(bootStatusAfterResetRequest);
  } else {
    ADD_FAILURE() << call << " does nothing";
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

const char* FakeHost::ReadMemory(void* elements, std::size_t count, Debugger::Address where, int page,
                                 std::size_t size) {
  const std::uint64_t address = Extract(where);
  const std::string line = MemoryLine("ReadMemory", currentCore, address, page, size, count);
  if (currentCore != "SEC_AP") events.push_back(line);
  if (const char* error = Begin(line)) return error;
  EXPECT_NE(count, 0U) << line << ": an empty transfer is no transfer";
  if (connectedCores.count(currentCore) == 0) return RefuseAsBreach(line + " while not connected");
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
  if (responses.empty() || !responses.front().seenReady || responses.front().words.size() < count)
    return RefuseAsBreach(line + ": the response is not ready or not that long");
  Response& response = responses.front();
  for (std::size_t i = 0; i < count; ++i) {
    std::memcpy(static_cast<std::uint8_t*>(elements) + 4 * i, &response.words.front(), 4);
    response.words.pop_front();
  }
  if (response.words.empty()) responses.pop_front();
  return nullptr;
}

const char* FakeHost::WriteMemory(const void* elements, std::size_t count, Debugger::Address where, int page,
                                  std::size_t size) {
  const std::uint64_t address = Extract(where);
  const std::string line = MemoryLine("WriteMemory", currentCore, address, page, size, count);
  const auto* bytes = static_cast<const std::uint8_t*>(elements);
  std::string shown = line + ":";
  for (std::size_t i = 0; i < std::min(count, kElementsShown); ++i) {
    std::uint32_t element = 0;
    std::memcpy(&element, bytes + i * size, std::min<std::size_t>(size, 4));
    shown += fmt::format(" {:0{}X}", element, 2 * size);
  }
  if (count > kElementsShown) shown += " ...";
  if (currentCore != "SEC_AP") events.push_back(shown);
  if (const char* error = Begin(shown)) return error;
  EXPECT_NE(count, 0U) << line << ": an empty transfer is no transfer";
  if (connectedCores.count(currentCore) == 0) return RefuseAsBreach(line + " while not connected");
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
