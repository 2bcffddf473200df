#include "CcfgSector.h"

#include <algorithm>

#include "Crc32.h"
#include "Sha256.h"

namespace simulator {
namespace {

constexpr std::uint8_t kDebugOpen = 0x5A;
constexpr std::uint8_t kDebugByPassword = 0xA5;
constexpr std::uint32_t kSingleSectors = 32;  // word 0 has a bit for each
constexpr std::uint32_t kGroup = 8;           // sectors that one bit of the later words stands for
constexpr std::uint32_t kFirstGroups = 28;    // groups in word 1, whatever its shift

std::uint32_t WordAt(std::span<const std::uint8_t> bytes, std::size_t offset) {
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < 4; ++i) word |= std::uint32_t{bytes[offset + i]} << (8 * i);
  return word;
}

bool Bit(std::uint32_t word, std::uint32_t bit) {
  return (word >> bit & 1) != 0;
}

}  // namespace

bool IsCrcWordRight(std::span<const std::uint8_t> sector, ByteRange range) {
  return Crc32(sector.subspan(range.offset, range.length)) == WordAt(sector, range.offset + range.length);
}

bool IsCcfgValid(const ChipDescription& description, std::span<const std::uint8_t> ccfg) {
  return IsCrcWordRight(ccfg, description.bootCfgCrc) && IsCrcWordRight(ccfg, description.ccfgCrc) &&
         IsCrcWordRight(ccfg, description.debugCfgCrc);
}

DebugAccess DebugAccessOf(const ChipDescription& description, std::span<const std::uint8_t> ccfg) {
  if (!IsCcfgValid(description, ccfg)) return DebugAccess::Open;
  const std::uint8_t type = ccfg[description.debugTypeOffset];
  if (type == kDebugOpen) return DebugAccess::Open;
  return type == kDebugByPassword ? DebugAccess::Password : DebugAccess::Closed;
}

std::uint64_t DebugPasswordId(const ChipDescription& description, std::span<const std::uint8_t> ccfg) {
  std::uint64_t id = 0;
  for (std::size_t i = 0; i < 8; ++i) id = id << 8 | ccfg[description.debugIdOffset + i];
  return id;
}

bool IsDebugPassword(const ChipDescription& description, std::span<const std::uint8_t> ccfg,
                     std::span<const std::uint32_t> words) {
  std::vector<std::uint8_t> password;
  for (const std::uint32_t word : words)
    for (unsigned shift = 0; shift < 32; shift += 8)
      password.push_back(static_cast<std::uint8_t>(word >> shift));
  return std::ranges::equal(Sha256(password), ccfg.subspan(description.debugHashOffset, 32));
}

std::vector<std::uint32_t> RetainWords(const ChipDescription& description,
                                       std::span<const std::uint8_t> ccfg) {
  std::vector<std::uint32_t> words;
  if (!IsCcfgValid(description, ccfg)) return words;
  for (std::uint32_t i = 0; i < description.chipEraseRetainWords; ++i)
    words.push_back(WordAt(ccfg, description.chipEraseRetainOffset + std::size_t{i} * 4));
  return words;
}

bool IsSectorRetained(const ChipDescription& description, std::span<const std::uint32_t> words,
                      std::uint32_t sector) {
  if (words.size() < 2) return false;
  if (sector < kSingleSectors) return Bit(words[0], sector);
  const std::uint32_t group = (sector - kSingleSectors) / kGroup;
  if (group < kFirstGroups) return Bit(words[1], group + description.retainGroupShift);
  const std::uint32_t laterGroup = group - kFirstGroups;
  return words.size() == 3 && laterGroup < 32 && Bit(words[2], laterGroup);
}

}  // namespace simulator
