#include "TestChip.h"

#include <algorithm>
#include <stdexcept>
#include <string_view>

#include "simulator/Crc32.h"

namespace simulator {
namespace {

constexpr Nanoseconds kRoundTrip = 150 * kMicrosecond;
constexpr Nanoseconds kWord = 4600;
constexpr Nanoseconds kConnecting = 10 * kMillisecond;  // longer than the ROM's boot

}  // namespace

Register RegisterNamed(std::string_view name) {
  const struct {
    std::string_view name;
    Register which;
  } registers[] = {
      {"SECAP_TXDATA", Register::SecApTxData}, {"SECAP_TXCTL", Register::SecApTxCtl},
      {"SECAP_RXCTL", Register::SecApRxCtl},   {"SECAP_RXDATA", Register::SecApRxData},
      {"SECAP_RSTCTL", Register::SecApRstCtl}, {"CFGAP_DEVICESTATUS", Register::CfgApDeviceStatus},
  };
  for (const auto& one : registers)
    if (one.name == name) return one.which;
  throw std::logic_error("no register " + std::string(name));
}

ChipDescription SmallChip() {
  return {.name = "small",
          .deviceId = 0x2BB9'802F,
          .partId = 0x8012'3456,
          .mainSize = 300 * 64,
          .sectorSize = 64,
          .ccfgBase = 0x4C00'0000,
          .ccfgSize = 0x100,
          .scfgBase = 0x4C00'1000,
          .scfgSize = 0x40,
          .otpBase = 0x4C00'0800,
          .otpSize = 0x20,
          .ramBase = 0x2000'0000,
          .ramSize = 0x100,
          .userRecord = {0x60, 0x20},
          .bootCfgCrc = {0x00, 0x0C},
          .ccfgCrc = {0x10, 0x4C},
          .userRecordCrc = {0x60, 0x1C},
          .debugCfgCrc = {0x80, 0x7C},
          .scfgCrc = {0x00, 0x1C},
          .chipEraseRetainOffset = 0x20,
          .chipEraseRetainWords = 3,
          .retainGroupShift = 0,
          .debugTypeOffset = 0xD0,
          .debugIdOffset = 0xD4,
          .debugHashOffset = 0xDC,
          .hsm = HsmKind::Whole,
          .lifeCycle = 5};
}

const Words& PasswordWords() {
  static const Words words = {0x6E65'706F, 0x7365'7320, 0x2165'6D61};  // "open sesame!"
  return words;
}

void SealCrc(Bytes& sector, ByteRange range) {
  const std::uint32_t crc = Crc32(std::span(sector).subspan(range.offset, range.length));
  for (unsigned i = 0; i < 4; ++i)
    sector[range.offset + range.length + i] = static_cast<std::uint8_t>(crc >> (8 * i));
}

Bytes ValidCcfg(std::uint8_t type, const Words& retain) {
  const ChipDescription chip = SmallChip();
  Bytes ccfg(chip.ccfgSize, 0x00);
  std::fill_n(ccfg.begin() + chip.userRecord.offset, chip.userRecord.length, std::uint8_t{0x11});
  for (std::size_t i = 0; i < 4 * retain.size(); ++i)
    ccfg[chip.chipEraseRetainOffset + i] = static_cast<std::uint8_t>(retain[i / 4] >> (8 * (i % 4)));
  ccfg[chip.debugTypeOffset] = type;
  const Bytes id = {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
  std::ranges::copy(id, ccfg.begin() + chip.debugIdOffset);
  // SHA-256 of "open sesame!", from an independent tool.
  const Bytes hash = {0xfd, 0x4d, 0x49, 0xe7, 0xa2, 0xcf, 0x6c, 0xc1, 0xc0, 0x02, 0x17,
                      0xe5, 0x98, 0x53, 0x83, 0x74, 0x39, 0x28, 0x3a, 0x28, 0x41, 0x18,
                      0x69, 0xe2, 0xb4, 0x28, 0x24, 0x6c, 0x7b, 0x63, 0xcc, 0xbf};
  std::ranges::copy(hash, ccfg.begin() + chip.debugHashOffset);
  for (const ByteRange range : {chip.bootCfgCrc, chip.ccfgCrc, chip.userRecordCrc, chip.debugCfgCrc})
    SealCrc(ccfg, range);
  return ccfg;
}

Words AsWords(std::span<const std::uint8_t> bytes) {
  Words words(bytes.size() / 4);
  for (std::size_t i = 0; i < bytes.size(); ++i) words[i / 4] |= std::uint32_t{bytes[i]} << (8 * (i % 4));
  return words;
}

Words Joined(Words head, std::span<const std::uint32_t> tail) {
  head.insert(head.end(), tail.begin(), tail.end());
  return head;
}

TestChip::TestChip(const ChipDescription& description, const CostModel& costs) : chip(description, costs) {
  chip.Clock().Advance(kConnecting);
}

void TestChip::Send(const Words& command) {
  const std::span<const std::uint32_t> words = command;
  Write("SECAP_TXCTL", 2);
  WriteTxWords(words.first(1));
  if (words.size() == 1) return;
  Write("SECAP_TXCTL", 0);
  WriteTxWords(words.subspan(1));
}

Words TestChip::Answer() {
  for (int i = 0; (Read("SECAP_RXCTL") & 1) == 0; ++i) {
    if (i == 10'000) return {};
    Sleep(1);
  }
  Words words = {Read("SECAP_RXDATA")};
  for (std::uint32_t left = words[0] >> 24; left > 0; --left) words.push_back(Read("SECAP_RXDATA"));
  return words;
}

Words TestChip::Command(const Words& command) {
  Send(command);
  return Answer();
}

std::uint32_t TestChip::Read(const char* registerName) {
  TakeTime(1);
  return chip.ReadRegister(RegisterNamed(registerName));
}

void TestChip::Write(const char* registerName, std::uint32_t value) {
  TakeTime(1);
  chip.WriteRegister(RegisterNamed(registerName), value);
}

void TestChip::WriteTxWords(std::span<const std::uint32_t> words) {
  TakeTime(0);
  for (const std::uint32_t word : words) {
    chip.Clock().Advance(kWord);
    chip.WriteRegister(Register::SecApTxData, word);
  }
}

void TestChip::ReadMemory(std::uint32_t address, std::span<std::uint8_t> bytes) {
  TakeTime((bytes.size() + 3) / 4);
  chip.ReadMemory(address, bytes);
}

void TestChip::WriteMemory(std::uint32_t address, std::span<const std::uint8_t> bytes) {
  TakeTime((bytes.size() + 3) / 4);
  chip.WriteMemory(address, bytes);
}

void TestChip::PinReset() {
  chip.Clock().Advance(kConnecting);
  chip.PinReset();
}

void TestChip::EnterSaci() {
  Write("SECAP_RSTCTL", 0x5C);
  chip.Clock().Advance(kConnecting);
}

void TestChip::TakeTime(std::size_t words) {
  chip.Clock().Advance(kRoundTrip + words * kWord);
}

void TestChip::Become(const ChipState& state) {
  chip.Restore(state);
  EnterSaci();
}

}  // namespace simulator
