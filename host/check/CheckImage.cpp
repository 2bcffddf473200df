#include "host/check/CheckImage.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <random>
#include <span>

#include "host/plan/Crc32.h"

namespace host {

namespace {

using Bytes = std::vector<std::uint8_t>;

// Of the family's configuration sectors, beside what a description says of them.
constexpr std::size_t kCcfgPermissions = 0x10;  // two bytes; 0xA in each half keeps the chip open
constexpr std::size_t kScfgPermissions = 0x08;
constexpr std::uint8_t kOpen = 0xAA;
constexpr std::size_t kKeyRing = 0xE8;
constexpr std::size_t kTwoKeys = 2 * 44;

constexpr std::uint32_t kSingleSectors = 32;  // with a bit each in the retain field's first word
constexpr std::uint32_t kGroup = 8;           // sectors that a bit of the other words stands for
constexpr std::uint32_t kFirstGroups = 28;    // groups in the second word

// The sector's bit, counted from the field's first; none where the field does not reach so far.
std::optional<std::uint32_t> RetainBitOf(const ChipFacts& chip, std::uint32_t sector) {
  std::uint32_t bit = sector;
  if (sector >= kSingleSectors) {
    const std::uint32_t group = (sector - kSingleSectors) / kGroup;
    bit = group < kFirstGroups ? 32 + chip.retainGroupShift + group : 64 + group - kFirstGroups;
  }
  return bit / 32 < chip.retainWords ? std::optional(bit) : std::nullopt;
}

void Mark(const ChipFacts& chip, Bytes& ccfg, std::uint32_t sector) {
  const auto bit = RetainBitOf(chip, sector);
  if (!bit) return;
  std::uint8_t& byte = ccfg[chip.retainOffset + *bit / 8];
  byte = static_cast<std::uint8_t>(byte | 1U << *bit % 8);
}

bool IsValid(const ChipFacts& chip, const Bytes& ccfg) {
  return WithoutUserRecord(chip, CcfgWithCrcs(chip, ccfg)) == WithoutUserRecord(chip, ccfg);
}

std::vector<ImageSegment> MainSegments(const ChipFacts& chip, CheckImage::Extent extent, std::uint32_t seed) {
  struct Piece {
    std::uint32_t sector, offset, sectors, bytes;
  };
  constexpr std::uint32_t kAroundFilled = 30;
  const bool isLarge = chip.mainSize > 256 * chip.sectorSize;
  const Piece wide[] = {{0, 0, 2, 0},
                        {3, 100, 0, 57},
                        {4, chip.sectorSize - 1, 0, 2},
                        {kAroundFilled, 0, 4, 8},
                        {39, 1000, 2, 0},
                        {255, 0, isLarge ? 2U : 1U, 0}};
  const Piece small[] = {{0, 0, 2, 0}, {4, 0, 2, 0}, {7, 9, 0, 700}, {40, 0, 0, 4}};
  std::vector<ImageSegment> segments;
  for (const Piece& piece : extent == CheckImage::Extent::Wide ? std::span<const Piece>(wide) : small) {
    const std::uint32_t address = piece.sector * chip.sectorSize + piece.offset;
    const std::uint32_t size = piece.sectors * chip.sectorSize + piece.bytes;
    if (address + size > chip.mainSize) continue;
    segments.push_back({address, Noise(size, ++seed)});
    if (piece.sector == kAroundFilled)
      std::fill_n(
          segments.back().data.begin() + (CheckImage::kFilledSector - kAroundFilled) * chip.sectorSize,
          chip.sectorSize, CheckImage::kFillByte);
  }
  if (isLarge && extent == CheckImage::Extent::Wide)
    segments.push_back({chip.mainSize - 4, Noise(4, ++seed)});
  return segments;
}

}  // namespace

std::vector<std::uint8_t> Noise(std::size_t size, std::uint32_t seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
  return bytes;
}

std::vector<std::uint8_t> FromHex(std::string_view digits) {
  Bytes bytes(digits.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i)
    (void)std::from_chars(digits.data() + 2 * i, digits.data() + 2 * i + 2, bytes[i], 16);
  return bytes;
}

void PutCrcRight(std::vector<std::uint8_t>& sector, CoveredRange range) {
  const std::uint32_t crc = Crc32(std::span(sector).subspan(range.offset, range.length));
  for (unsigned i = 0; i < 4; ++i)
    sector[range.offset + range.length + i] = static_cast<std::uint8_t>(crc >> 8 * i);
}

std::vector<std::uint8_t> CcfgWithCrcs(const ChipFacts& chip, std::vector<std::uint8_t> ccfg) {
  for (const CoveredRange range : {chip.bootCrc, chip.ccfgCrc, chip.userRecordCrc, chip.debugCrc})
    PutCrcRight(ccfg, range);
  return ccfg;
}

std::vector<std::uint8_t> ScfgWithCrc(const ChipFacts& chip, std::vector<std::uint8_t> scfg) {
  if (!scfg.empty()) PutCrcRight(scfg, chip.scfgCrc);
  return scfg;
}

std::vector<std::uint8_t> WithoutUserRecord(const ChipFacts& chip, std::vector<std::uint8_t> ccfg) {
  std::fill_n(ccfg.begin() + chip.userRecord.offset, chip.userRecord.length, std::uint8_t{0xFF});
  return ccfg;
}

std::vector<bool> KeptSectors(const ChipFacts& chip, const std::vector<std::uint8_t>& ccfg) {
  std::vector<bool> kept(chip.mainSize / chip.sectorSize);
  if (!IsValid(chip, ccfg)) return kept;
  for (std::uint32_t sector = 0; sector < kept.size(); ++sector) {
    const auto bit = RetainBitOf(chip, sector);
    kept[sector] = bit && (std::uint32_t{ccfg[chip.retainOffset + *bit / 8]} >> *bit % 8 & 1U) != 0;
  }
  return kept;
}

CheckImage::CheckImage(const ChipFacts& facts, std::uint32_t seed, Extent extent)
    : chip(facts), main(MainSegments(facts, extent, seed)) {
  ccfg = Noise(chip.ccfg.size, seed + 10);
  ccfg[kCcfgPermissions] = ccfg[kCcfgPermissions + 1] = kOpen;
  ccfg[chip.authorizationTypeOffset] = kDebugOpen;
  std::fill_n(ccfg.begin() + chip.retainOffset, chip.retainWords * 4, std::uint8_t{0});
  for (const std::uint32_t sector : {1U, 31U, 40U, 256U}) Mark(chip, ccfg, sector);

  if (chip.scfg.size != 0) {
    scfg = Noise(chip.scfg.size, seed + 11);
    scfg[kScfgPermissions] = kOpen;
    for (std::size_t at = kKeyRing + kTwoKeys; at < scfg.size(); ++at) scfg[at] = 0xFF;
  }

  if (chip.otp.size != 0) otp = {{chip.otp.base + 12, Noise(64, seed + 12)}};
  ram = {{chip.ram.base, Noise(16, seed + 13)},
         {chip.ram.base + 0x101, Noise(33, seed + 14)},
         {chip.ram.base + chip.ram.size - 5, Noise(5, seed + 15)}};
}

std::vector<ImageSegment> CheckImage::All() const {
  std::vector<ImageSegment> segments = main;
  segments.push_back({chip.ccfg.base, ccfg});
  if (!scfg.empty()) segments.push_back({chip.scfg.base, scfg});
  segments.insert(segments.end(), otp.begin(), otp.end());
  segments.insert(segments.end(), ram.begin(), ram.end());
  return segments;
}

void CheckImage::RequirePassword() {
  ccfg[chip.authorizationTypeOffset] = kDebugByPassword;
  std::ranges::copy(FromHex(kPasswordHash), ccfg.begin() + chip.authorizationHashOffset);
}

void CheckImage::ForbidEverything() {
  ccfg[kCcfgPermissions] = ccfg[kCcfgPermissions + 1] = 0;
}

}  // namespace host
