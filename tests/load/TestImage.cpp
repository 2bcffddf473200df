#include "TestImage.h"

#include <algorithm>
#include <random>

#include "host/plan/Crc32.h"

namespace {

constexpr std::uint32_t kKeyRing = 0xE8;  // in the SCFG
constexpr std::uint32_t kKeySize = 44;
constexpr std::uint32_t kGroup = 1;  // sectors 40 to 47, of the CCFG's chip-erase-retain field

void SetBit(Bytes& bytes, std::uint32_t offset, std::uint32_t bit) {
  bytes[offset + bit / 8] = static_cast<std::uint8_t>(bytes[offset + bit / 8] | 1U << bit % 8);
}

host::ImageSegment Segment(std::uint32_t address, std::size_t size, std::uint32_t seed) {
  return {address, Noise(size, seed)};
}

}  // namespace

Bytes Noise(std::size_t size, std::uint32_t seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
  return bytes;
}

void PutCrcRight(Bytes& sector, host::CoveredRange range) {
  const std::uint32_t crc = host::Crc32(std::span(sector).subspan(range.offset, range.length));
  for (unsigned i = 0; i < 4; ++i)
    sector[range.offset + range.length + i] = static_cast<std::uint8_t>(crc >> 8 * i);
}

Bytes CcfgWithCrcs(const host::ChipFacts& chip, Bytes ccfg) {
  for (const auto& range : {chip.bootCrc, chip.ccfgCrc, chip.userRecordCrc, chip.debugCrc})
    PutCrcRight(ccfg, range);
  return ccfg;
}

Bytes ScfgWithCrc(const host::ChipFacts& chip, Bytes scfg) {
  PutCrcRight(scfg, chip.scfgCrc);
  return scfg;
}

Bytes WithoutUserRecord(const host::ChipFacts& chip, Bytes ccfg) {
  std::fill_n(ccfg.begin() + chip.userRecord.offset, chip.userRecord.length, std::uint8_t{0xFF});
  return ccfg;
}

Bytes Laid(const Segments& segments, std::uint32_t base, std::size_t size, std::uint8_t fill) {
  Bytes region(size, fill);
  for (const host::ImageSegment& segment : segments)
    std::copy(segment.data.begin(), segment.data.end(), region.begin() + (segment.address - base));
  return region;
}

std::string Difference(const simulator::ChipState& left, const simulator::ChipState& right) {
  std::string text;
  for (std::uint32_t at = 0; at < left.main.size(); at += kSectorSize)
    if (!std::equal(left.main.begin() + at, left.main.begin() + at + kSectorSize, right.main.begin() + at))
      text += std::to_string(at / kSectorSize) + " ";
  if (left.ccfg != right.ccfg) text += "CCFG ";
  if (left.scfg != right.scfg) text += "SCFG ";
  if (left.otp != right.otp) text += "OTP ";
  if (left.ram != right.ram) text += "RAM ";
  return text.empty() && left != right ? "HSM or life cycle" : text;
}

TestImage::TestImage(const host::ChipFacts& facts, std::uint32_t seed) : chip(facts) {
  // Whole sectors, a piece of one, single bytes at a sector's ends, sectors that the CCFG may retain, the
  // last sector of all.
  const bool isLarge = chip.mainSize > 256 * kSectorSize;
  main = {Segment(0, 2 * kSectorSize, seed + 1),
          Segment(3 * kSectorSize + 100, 57, seed + 2),
          Segment(5 * kSectorSize - 1, 2, seed + 3),
          Segment(30 * kSectorSize, 4 * kSectorSize + 8, seed + 4),
          Segment(39 * kSectorSize + 1000, 2 * kSectorSize, seed + 5),
          Segment(255 * kSectorSize, std::size_t{isLarge ? 2U : 1U} * kSectorSize, seed + 6)};
  if (isLarge) main.push_back(Segment(chip.mainSize - 4, 4, seed + 7));
  std::fill_n(main[3].data.begin() + (kFilledSector - 30) * kSectorSize, kSectorSize, kFillByte);

  ccfg = Noise(chip.ccfg.size, seed + 8);
  // Permission nibbles and the type of debug authorization at the values that keep the chip open.
  ccfg[0x10] = ccfg[0x11] = 0xAA;
  ccfg[chip.authorizationTypeOffset] = 0x5A;
  std::fill_n(ccfg.begin() + chip.retainOffset, chip.retainWords * 4, std::uint8_t{0});
  for (std::uint32_t sector = 0; sector < 32; ++sector)
    if (Retains(sector)) SetBit(ccfg, chip.retainOffset, sector);
  SetBit(ccfg, chip.retainOffset + 4, kGroup + chip.retainGroupShift);
  if (chip.retainWords == 3) SetBit(ccfg, chip.retainOffset + 8, 0);

  scfg = Noise(chip.scfg.size, seed + 9);
  scfg[0x08] = 0xAA;
  std::fill(scfg.begin() + kKeyRing + 2 * kKeySize, scfg.end(), std::uint8_t{0xFF});

  if (chip.otp.size != 0) otp = {Segment(chip.otp.base + 12, 300, seed + 10)};
  ram = {Segment(chip.ram.base, 16, seed + 11), Segment(chip.ram.base + 0x101, 33, seed + 12),
         Segment(chip.ram.base + chip.ram.size - 5, 5, seed + 13)};
}

Segments TestImage::All() const {
  Segments segments = main;
  segments.push_back({chip.ccfg.base, ccfg});
  segments.push_back({chip.scfg.base, scfg});
  segments.insert(segments.end(), otp.begin(), otp.end());
  segments.insert(segments.end(), ram.begin(), ram.end());
  return segments;
}

Bytes TestImage::Otp() const {
  return Laid(otp, chip.otp.base, chip.otp.size, 0xFF);
}

bool TestImage::Retains(std::uint32_t sector) const {
  if (sector < 32) return sector == 1 || sector == 31;
  if (sector < 256) return (sector - 32) / 8 == kGroup;
  return chip.retainWords == 3 && sector < 264;
}

void TestImage::RequirePassword() {
  // sha256sum of kPassword
  constexpr std::uint8_t kHash[] = {0xfd, 0x4d, 0x49, 0xe7, 0xa2, 0xcf, 0x6c, 0xc1, 0xc0, 0x02, 0x17,
                                    0xe5, 0x98, 0x53, 0x83, 0x74, 0x39, 0x28, 0x3a, 0x28, 0x41, 0x18,
                                    0x69, 0xe2, 0xb4, 0x28, 0x24, 0x6c, 0x7b, 0x63, 0xcc, 0xbf};
  ccfg[chip.authorizationTypeOffset] = 0xA5;
  std::copy(std::begin(kHash), std::end(kHash), ccfg.begin() + chip.authorizationHashOffset);
}
