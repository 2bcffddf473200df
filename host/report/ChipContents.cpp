#include "host/report/ChipContents.h"

#include <fmt/format.h>

#include <algorithm>
#include <span>

#include "host/plan/Crc32.h"
#include "host/report/Format.h"

namespace host {

namespace {

struct CrcWord {
  const char* name;
  CoveredRange covered;
};

std::size_t ProgrammedBytes(std::span<const std::uint8_t> bytes) {
  return bytes.size() - static_cast<std::size_t>(std::count(bytes.begin(), bytes.end(), kErased));
}

// The word behind the covered bytes is their CRC-32.
std::string JudgedText(std::span<const std::uint8_t> sector, CoveredRange covered) {
  const std::uint64_t end = std::uint64_t{covered.offset} + covered.length;
  if (end + 4 > sector.size()) return "outside";
  if (ProgrammedBytes(sector.subspan(covered.offset, covered.length + 4)) == 0) return "blank";
  std::uint32_t stored = 0;
  for (std::size_t i = 0; i < 4; ++i) stored |= std::uint32_t{sector[end + i]} << (8 * i);
  return Crc32(sector.subspan(covered.offset, covered.length)) == stored ? "right" : "wrong";
}

std::string CrcText(std::span<const std::uint8_t> sector, const std::vector<CrcWord>& words) {
  std::string text;
  for (const CrcWord& word : words)
    text += fmt::format("; {} CRC {}", word.name, JudgedText(sector, word.covered));
  return text;
}

std::string HeldText(std::span<const std::uint8_t> bytes, const std::vector<CrcWord>& words) {
  const std::size_t programmed = ProgrammedBytes(bytes);
  if (programmed == 0) return "blank";
  return fmt::format("{} bytes programmed{}", Grouped(programmed), CrcText(bytes, words));
}

std::string MainText(std::span<const std::uint8_t> main, std::uint32_t sectorSize) {
  const std::size_t programmed = ProgrammedBytes(main);
  if (programmed == 0) return "blank";
  std::size_t sectors = 0;
  for (std::size_t at = 0; at + sectorSize <= main.size(); at += sectorSize)
    sectors += ProgrammedBytes(main.subspan(at, sectorSize)) != 0 ? 1U : 0U;
  return fmt::format("{} of {} sectors hold data", Grouped(sectors), Grouped(main.size() / sectorSize));
}

std::string LifeCycleText(std::uint32_t lifeCycle) {
  switch (lifeCycle) {
    case 3: return "3, test";
    case 4: return "4, engineering development";
    case 5: return "5, production development";
    default: return fmt::format("{}, SACI cannot be left", lifeCycle);
  }
}

std::string BootText(std::uint32_t code) {
  if (code < 0x20) return "booting";
  if (code == 0x20) return "in SACI, the ROM's command mode";
  if (code == 0x81 || code == 0xC1) return "in the debug-probe loop, before the application";
  if (code >= 0x80) return "boot code or application";
  return "unknown";
}

}  // namespace

std::vector<TitledText> DescribeContents(const DeviceDescription& device, const ChipPicture& picture) {
  const ChipFacts& chip = device.chip;
  std::vector<TitledText> lines;
  lines.emplace_back("MAIN", MainText(picture.main, device.map.sectorSize));
  lines.emplace_back("CCFG", HeldText(picture.ccfg, {{"boot", chip.bootCrc},
                                                     {"sector", chip.ccfgCrc},
                                                     {"user record", chip.userRecordCrc},
                                                     {"debug", chip.debugCrc}}));
  if (!picture.scfg.empty()) lines.emplace_back("SCFG", HeldText(picture.scfg, {{"sector", chip.scfgCrc}}));
  if (!picture.otp.empty()) lines.emplace_back("OTP", HeldText(picture.otp, {}));
  return lines;
}

std::vector<TitledText> DescribeStatus(std::uint32_t status) {
  constexpr std::uint32_t kAhbApEnabled = 1U << 24;
  return {{"Life cycle", LifeCycleText(status & 0xFF)},
          {"Boot status", fmt::format("0x{:02x}, {}", status >> 8 & 0xFF, BootText(status >> 8 & 0xFF))},
          {"Debugging", (status & kAhbApEnabled) != 0 ? "open" : "closed"}};
}

}  // namespace host
