#include "DeviceTest.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace {

bool StartsWith(const std::string& text, const char* prefix) {
  return text.rfind(prefix, 0) == 0;
}

bool StartsWithAny(const std::string& text, std::initializer_list<const char*> prefixes) {
  return std::any_of(prefixes.begin(), prefixes.end(),
                     [&](const char* prefix) { return StartsWith(text, prefix); });
}

std::string JoinedBy(const char* separator, const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += (text.empty() ? "" : separator) + line;
  return text;
}

}  // namespace

Bytes Pattern(std::size_t size, std::uint8_t seed) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(1 + (seed + i * 7) % 251);
  return bytes;
}

Bytes OpenCcfg() {
  Bytes ccfg = Pattern(kCcfgSize, 3);
  ccfg[kAuthorizationType] = 0x5A;
  return ccfg;
}

std::uint32_t ReferenceCrc32(std::span<const std::uint8_t> data) {
  std::uint32_t crc = 0xFFFFFFFF;
  for (const std::uint8_t byte : data) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
  }
  return ~crc;
}

std::uint32_t Crc(const Bytes& bytes, std::size_t offset, std::size_t length) {
  return ReferenceCrc32(std::span(bytes).subspan(offset, length));
}

std::uint32_t WordAt(const Bytes& bytes, std::size_t offset) {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes.data() + offset, sizeof word);
  return word;
}

Bytes BytesOf(std::span<const std::uint32_t> words) {
  Bytes bytes(words.size_bytes());
  if (!words.empty()) std::memcpy(bytes.data(), words.data(), bytes.size());
  return bytes;
}

std::string Hex8(std::uint32_t value) {
  char text[12];
  std::snprintf(text, sizeof text, "%08X", value);
  return text;
}

DeviceTest::DeviceTest() {
  host.properties.insert({
      {"ImageVerificationSetting", "0"},
      {"FlashPageToggle", "0"},
      {"FlashPages", ""},
      {"FlashPagesFilledWith", "0"},
      {"FlashPagesFilledWithValue", "0xFF"},
      {"PermissionsSetting", "1"},
      {"CcfgPermissions", ""},
      {"ScfgPermissions", ""},
      {"CcfgCrcFields", "ccfg.bootCfg.crc32,ccfg.crc32,ccfg.userRecord.crc32,ccfg.debugCfg.crc32"},
      {"ccfg.bootCfg.crc32Info", "0x0:0xC"},
      {"ccfg.crc32Info", "0x10:0x6EC"},
      {"ccfg.debugCfg.crc32Info", "0x7D0:0x2C"},
      {"CcfgOverwriteAuthorizationFieldsToggle", "0"},
      {"CcfgOverwriteAuthorizationFieldsTypeChoicelist", "Debug always allowed"},
      {"CcfgOverwriteAuthorizationFieldsPasswordId", ""},
      {"CcfgOverwriteAuthorizationFieldsPasswordHash", ""},
      {"ScfgCrcFields", "scfg.crc32"},
      {"scfg.crc32Info", "0x0:0xE4"},
      {"scfg2.crc32Info", "0x4:0xDC"},
      {"DebugPasswordFormatList", "Text"},
      {"DebugPassword", "open sesame"},
      {"DebugPasswordHex", "0A1"},
  });
  host.properties["DeviceInfoRevisionTranslation"] =
      "0x1BB77:1.0:A:0x0BB98:1.0:B:0x1BB98:2.0:E:0x0BBC5:1.0:A:0x0BBCC:1.0:A";
}

PluginDevice& DeviceTest::Device() {
  if (!device) {
    device.emplace(host);
    EXPECT_EQ(device->Initialize(), "ok");
    host.ForgetCalls();
  }
  return *device;
}

std::string DeviceTest::WriteFirst(std::uint32_t address, const Bytes& data) {
  EXPECT_EQ(Start(), "ok");
  host.ForgetCalls();
  return Write(address, data);
}

std::vector<std::string> DeviceTest::Plot() const {
  std::vector<std::string> plot;
  std::string core = "(first core)";
  std::size_t command = 0;      // the next one
  std::size_t wordsToCome = 0;  // of the one before
  bool header = false;
  for (const std::string& call : host.calls) {
    if (StartsWith(call, "SetCore ")) core = call.substr(8);
    if (StartsWith(call, "SetCoreById ")) core = call.substr(12);
    if (call == "WriteReg SECAP_TXCTL 0x2") header = true;
    if (StartsWith(call, "WriteMemory SEC_AP")) {
      if (header) {
        const SaciCommand& sent = host.commands.at(command++);
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

std::string DeviceTest::Deeds() const {
  std::vector<std::string> plot = Plot();
  std::erase(plot, "identify");
  return JoinedBy("\n", plot);
}

std::string DeviceTest::Messages() const {
  std::vector<std::string> plot = Plot();
  std::erase_if(plot, [](const std::string& line) {
    return !StartsWith(line, "Info ") && !StartsWith(line, "Error ");
  });
  return JoinedBy("\n", plot);
}

std::string DeviceTest::Saci() const {
  std::vector<std::string> plot = Plot();
  std::erase_if(plot, [](const std::string& line) {
    return !StartsWith(line, "SACI ") && !StartsWith(line, "stream ");
  });
  return JoinedBy(", ", plot);
}

SaciCommand DeviceTest::Command(std::uint8_t id) const {
  for (auto command = host.commands.rbegin(); command != host.commands.rend(); ++command)
    if (command->Id() == id) return *command;
  ADD_FAILURE() << "no command " << unsigned{id} << " was sent";
  return {Words(600), {}};
}

std::vector<std::uint8_t> DeviceTest::Programmed() const {
  std::vector<std::uint8_t> ids = host.CommandIds();
  std::erase_if(ids, [](std::uint8_t id) { return id == 1 || id == 5; });
  return ids;
}

Bytes DeviceTest::Payload(std::uint8_t id) const {
  const SaciCommand command = Command(id);
  return BytesOf(std::span(command.words).subspan(2));
}

std::size_t DeviceTest::CallCount(const std::string& line) const {
  return static_cast<std::size_t>(std::count(host.calls.begin(), host.calls.end(), line));
}
