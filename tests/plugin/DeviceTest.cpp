#include "DeviceTest.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

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

std::string DeviceTest::Deeds() const {
  std::vector<std::string> plot = Plot();
  std::erase(plot, "identify");
  return JoinedBy("\n", plot);
}

std::string DeviceTest::Messages() const {
  return JoinedBy("\n", host.Plot({"Info ", "Error "}));
}

std::string DeviceTest::Saci() const {
  return JoinedBy(", ", host.Plot({"SACI ", "stream "}));
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
