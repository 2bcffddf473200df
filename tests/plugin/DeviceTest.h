#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "FakeHost.h"
#include "PluginUnderTest.h"

// The parts of the family that the device tells apart. The values are what DEVICEID reads.
enum class Part : std::uint32_t {
  Serin = 0x1BB7702F,
  CorvelHighPg1 = 0x0BB9802F,
  CorvelHighPg2 = 0x1BB9802F,
  CorvelHighNew = 0x0BBC502F,
  CorvelMid = 0x0BBCC02F,
};

// Sectors, regions and fields as the settings of DeviceTest describe them.
constexpr std::uint32_t kSector = 0x800;
constexpr std::uint32_t kCcfg = 0x4E020000;
constexpr std::uint32_t kCcfgSize = 0x800;
constexpr std::uint32_t kUserRecord = kCcfg + 0x700;
constexpr std::uint32_t kUserRecordSize = 0x80;
constexpr std::uint32_t kAuthorizationType = kCcfgSize - 48;
constexpr std::uint32_t kOtp = 0x4E020800;
constexpr std::uint32_t kOtpSize = 0x100;
constexpr std::uint32_t kScfg = 0x4E040000;
constexpr std::uint32_t kScfgSize = 0x400;
constexpr std::uint32_t kRam = 0x20000000;

// `size` bytes that differ from their neighbours, and none of them 0xFF or 0.
Bytes Pattern(std::size_t size, std::uint8_t seed = 1);
// A CCFG sector that leaves debugging open.
Bytes OpenCcfg();
// IEEE 802.3, bit by bit: written anew here, so that the device's table cannot vouch for itself.
std::uint32_t ReferenceCrc32(std::span<const std::uint8_t> data);
std::uint32_t Crc(const Bytes& bytes, std::size_t offset, std::size_t length);
std::uint32_t WordAt(const Bytes& bytes, std::size_t offset);
Bytes BytesOf(std::span<const std::uint32_t> words);
std::string Hex8(std::uint32_t value);  // eight upper-case digits

// A device of the built library over a host that has every setting, each at a value that does nothing
// unusual.
class DeviceTest : public testing::Test {
 protected:
  DeviceTest();

  void Be(Part part) { host.registers["CFGAP_DEVICEID"] = static_cast<std::uint32_t>(part); }

  // Made and initialized at the first use, so that a test can change settings before. Forgets the calls then.
  PluginDevice& Device();

  // Each answers "ok" or the error text.
  std::string Start() { return Device().Load(ProgramState::LoadStart); }
  std::string Write(std::uint32_t address, const Bytes& data) { return Device().Write(address, data); }
  std::string End() { return Device().Load(ProgramState::LoadEnd); }
  // Writes as the first block of a load; the calls before the write are forgotten.
  std::string WriteFirst(std::uint32_t address, const Bytes& data);

  [[nodiscard]] std::vector<std::string> Plot() const { return host.Plot(); }
  // The same without "identify", joined by line breaks.
  [[nodiscard]] std::string Deeds() const;
  // Only messages, joined by line breaks.
  [[nodiscard]] std::string Messages() const;
  // Only SACI lines and streams, joined by ", ".
  [[nodiscard]] std::string Saci() const;

  // The last command with this id; fails the test when there is none.
  [[nodiscard]] SaciCommand Command(std::uint8_t id) const;
  // The ids of all commands but those that enter SACI and ask for a password.
  [[nodiscard]] std::vector<std::uint8_t> Programmed() const;
  // The bytes that follow its header and key.
  [[nodiscard]] Bytes Payload(std::uint8_t id) const;
  [[nodiscard]] std::size_t CallCount(const std::string& line) const;

  FakeHost host;

 private:
  std::optional<PluginDevice> device;
};
