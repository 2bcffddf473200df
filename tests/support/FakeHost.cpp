#include "FakeHost.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

constexpr std::uint32_t kKey = 0x5C17E94B;
constexpr std::uint8_t kIdPipelined = 15;
constexpr std::uint8_t kIdHsmFirmware = 33;

// Positions stand for addresses, 4 bytes apart from kFirstRegister on.
constexpr std::array<const char*, 6> s_registerNames = {
    "SECAP_TXCTL", "SECAP_RXCTL", "SECAP_RSTCTL", "CFGAP_DEVICESTATUS", "CFGAP_DEVICEID", "CFGAP_PARTID"};
constexpr unsigned long long kFirstRegister = 0x0F000000;

constexpr std::size_t kElementsShown = 8;
constexpr std::size_t kWordsTold = 6;  // header included

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

bool StartsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

bool StartsWithAny(const std::string& text, const std::vector<std::string>& prefixes) {
  return std::any_of(prefixes.begin(), prefixes.end(),
                     [&](const std::string& prefix) { return StartsWith(text, prefix); });
}

std::string CommandLine(const SaciCommand& command) {
  char text[24];
  std::snprintf(text, sizeof text, "SACI %u/%04X", unsigned{command.Id()}, unsigned{command.Specific()});
  std::string line = text;
  if (command.words.size() > kWordsTold) return line + " " + std::to_string(command.words.size()) + " words";
  for (std::size_t i = 1; i < command.words.size(); ++i) line += " " + Hex(command.words[i], 8);
  return line;
}

bool IsKeyed(std::uint8_t id) {
  static const std::set<std::uint8_t> keyed = {9, 28, 12, 13, 14, 15, 25, 26};
  return keyed.count(id) != 0;
}

}  // namespace

std::string Joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

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
                                   [&](const auto& entry) { return StartsWith(line, entry.first); });
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

std::uint32_t FakeHost::RxFlags() {
  std::uint32_t flags = 0;
  if (workingLeft != 0) {
    --workingLeft;
    flags |= 4;
  }
  if (responses.empty()) return flags;
  Response& response = responses.front();
  if (response.latePolls != 0) {
    --response.latePolls;
    return flags;
  }
  response.seenReady = true;
  return flags | 1 | (response.early ? 8U : 0U);
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

std::size_t FakeHost::ExpectedWords(const SaciCommand& command) const {
  const std::size_t specific = command.Specific();
  switch (command.Id()) {
    case 6: return std::min<std::size_t>(specific + 1, 17);
    case 9:
    case 27:
    case 28:
    case 33: return 2;
    case 12: return 2 + ccfgSize / 4;
    case 13: return 2 + ccfgUserRecordSize / 4;
    case 14: return std::min<std::size_t>((specific + 15) / 4, 3 + mainSectorSize / 4);
    case 15: return 3;
    case 16: return 4;
    case 17: return 5;
    case 25: return 514;
    case 26: return 2 + scfgSize / 4;
    default: return 1;
  }
}

void FakeHost::ReceiveWords(const Words& words) {
  const bool scripted = registerScripts.count("CFGAP_DEVICESTATUS") != 0;
  if (bootStatus != 0x20 && !scripted) ADD_FAILURE() << "SACI words while the ROM is not in SACI";
  if ((txFlags & 2) != 0) {
    if (commandOpen && !faultInjected) ADD_FAILURE() << "the command before was cut short";
    EXPECT_EQ(words.size(), 1U) << "the start flag belongs to the header alone";
    if (!responses.empty() && !faultInjected) ADD_FAILURE() << "a response was left unread";
    commands.push_back({words, {}});
    commandOpen = true;
    streaming = false;
  } else if (commandOpen) {
    Words& sent = commands.back().words;
    sent.insert(sent.end(), words.begin(), words.end());
  } else if (streaming) {
    ReceiveStream(words);
    return;
  } else {
    ADD_FAILURE() << "words without a command";
    return;
  }
  const std::size_t expected = ExpectedWords(commands.back());
  EXPECT_LE(commands.back().words.size(), expected) << CommandLine(commands.back());
  if (commands.back().words.size() == expected) CompleteCommand();
}

void FakeHost::CompleteCommand() {
  commandOpen = false;
  const SaciCommand command = commands.back();
  onCommand(command);
  const std::uint8_t id = command.Id();
  streaming = id == kIdPipelined || id == kIdHsmFirmware;
  wordsStreamed = 0;
  if (streaming) {
    workingLeft = id == kIdHsmFirmware ? workingPolls : 0;
    if (id == kIdHsmFirmware) ReceiveStream({});
    return;
  }
  if (id == 20 && (command.Specific() & 1) == 0) return RestartRom(bootStatusAfterResetRequest);

  SaciReply reply = TakeReply(id);
  if (IsKeyed(id) && command.words[1] != kKey) reply = {.result = 131};
  QueueResponse(reply, id, command.Sequence());
  if (reply.result != 0) return;
  if (id == 7) bootStatus = bootStatusAfterHalt;
  if (id == 21) bootStatus = bootStatusAfterRun;
}

void FakeHost::ReceiveStream(const Words& words) {
  SaciCommand& command = commands.back();
  const std::uint8_t id = command.Id();
  if (!words.empty()) command.streamed.push_back(words);
  wordsStreamed += words.size();
  if (id == kIdPipelined) {
    const std::size_t chunk = command.streamed.size() - 1;
    SaciReply reply = TakeReply(id);
    if (command.words[1] != kKey) reply = {.result = 131};
    return QueueResponse(reply, id, static_cast<std::uint8_t>(command.Sequence() + chunk));
  }

  workingLeft = workingPolls;
  std::deque<SaciReply>& queued = queuedReplies[id];
  if (!queued.empty() && queued.front().earlyAfterPieces == command.streamed.size()) {
    QueueResponse(TakeReply(id), id, command.Sequence());
  }
  if (wordsStreamed >= command.words[1]) QueueResponse(TakeReply(id), id, command.Sequence());
}

SaciReply FakeHost::TakeReply(std::uint8_t id) {
  std::deque<SaciReply>& queued = queuedReplies[id];
  if (!queued.empty()) {
    SaciReply reply = std::move(queued.front());
    queued.pop_front();
    return reply;
  }
  const auto standing = standingReplies.find(id);
  return standing == standingReplies.end() ? SaciReply{} : standing->second;
}

void FakeHost::QueueResponse(const SaciReply& reply, std::uint8_t id, std::uint8_t sequence) {
  if (reply.silent) return;
  Response response;
  response.latePolls = reply.latePolls;
  response.early = reply.earlyAfterPieces.has_value();
  const auto count = reply.count.value_or(static_cast<std::uint8_t>(reply.data.size()));
  response.words.push_back(static_cast<std::uint32_t>(reply.id.value_or(id)) |
                           static_cast<std::uint32_t>(reply.sequence.value_or(sequence)) << 8 |
                           static_cast<std::uint32_t>(reply.result) << 16 |
                           static_cast<std::uint32_t>(count) << 24);
  response.words.insert(response.words.end(), reply.data.begin(), reply.data.end());
  responses.push_back(std::move(response));
}

void FakeHost::RestartRom(std::uint8_t newBootStatus) {
  bootStatus = newBootStatus;
  txFlags = 0;
  commandOpen = false;
  streaming = false;
  workingLeft = 0;
  responses.clear();
}

std::vector<std::string> FakeHost::Plot() const {
  std::vector<std::string> plot;
  std::string core = "(first core)";
  std::size_t command = 0;      // the next one
  std::size_t wordsToCome = 0;  // of the one before
  bool header = false;
  for (const std::string& call : calls) {
    if (StartsWith(call, "SetCore ")) core = call.substr(8);
    if (StartsWith(call, "SetCoreById ")) core = call.substr(12);
    if (call == "WriteReg SECAP_TXCTL 0x2") header = true;
    if (StartsWith(call, "WriteMemory SEC_AP")) {
      if (header) {
        const SaciCommand& sent = commands.at(command++);
        plot.push_back(CommandLine(sent));
        wordsToCome = sent.words.size() - 1;
      } else if (wordsToCome != 0) {
        wordsToCome = 0;
      } else {
        const std::size_t count = call.find(" x") + 2;
        plot.push_back("stream " + call.substr(count, call.find(':') - count));
      }
      header = false;
      continue;
    }
    if (StartsWith(call, "Report")) {
      plot.push_back(call.substr(6));
    } else if (StartsWith(call, "SetProperty DeviceInfo")) {
      if (StartsWith(call, "SetProperty DeviceInfoRevision")) plot.emplace_back("identify");
    } else if (StartsWithAny(call, {"SetProperty", "Sleep", "ResetTarget", "WriteMemory", "ReadMemory"})) {
      if (!StartsWith(call, "ReadMemory SEC_AP")) plot.push_back(call);
    } else if (core == "SEC_AP" && !StartsWith(call, "Disconnect")) {
      continue;  // of a transfer
    } else if (StartsWith(call, "WriteReg SECAP_RSTCTL")) {
      plot.push_back(core);
      plot.back().append(" reset request").append(call, 21);
    } else if (StartsWithAny(call, {"Connect", "Disconnect", "ReConnect"})) {
      plot.push_back(core);
      plot.back().append(" ").append(call);
    }
  }
  return plot;
}

std::vector<std::string> FakeHost::Plot(const std::vector<std::string>& prefixes) const {
  std::vector<std::string> plot = Plot();
  std::erase_if(plot, [&](const std::string& line) { return !StartsWithAny(line, prefixes); });
  return plot;
}

std::vector<std::uint8_t> FakeHost::CommandIds() const {
  std::vector<std::uint8_t> ids;
  for (const SaciCommand& command : commands) ids.push_back(command.Id());
  return ids;
}
