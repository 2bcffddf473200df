#include "TestImage.h"

#include <algorithm>
#include <random>

namespace {

constexpr std::uint32_t kSectorSize = 2048;
constexpr std::uint32_t kKeyRing = 0xE8;  // in the SCFG
constexpr std::uint32_t kKeySize = 44;

// Of the CCFG's chip-erase-retain field.
constexpr std::uint32_t kSingleSectors[] = {1, 31};
constexpr std::uint32_t kGroup = 1;  // sectors 40 to 47

void SetBit(Bytes& bytes, std::uint32_t offset, std::uint32_t bit) {
  bytes[offset + bit / 8] = static_cast<std::uint8_t>(bytes[offset + bit / 8] | 1U << bit % 8);
}

host::ImageSegment Segment(std::uint32_t address, std::size_t size, std::uint32_t seed) {
  return {address, Noise(size, seed)};
}

Bytes MakeCcfg(const host::ChipFacts& chip, std::uint32_t seed) {
  Bytes ccfg = Noise(chip.ccfg.size, seed);
  // Permission nibbles and the type of debug authorization at the values that keep the chip open.
  ccfg[0x10] = ccfg[0x11] = 0xAA;
  ccfg[chip.authorizationTypeOffset] = 0x5A;
  const auto retain = ccfg.begin() + chip.retainOffset;
  std::fill_n(retain, chip.retainWords * 4, std::uint8_t{0});
  for (const std::uint32_t sector : kSingleSectors) SetBit(ccfg, chip.retainOffset, sector);
  SetBit(ccfg, chip.retainOffset + 4, kGroup + chip.retainGroupShift);
  if (chip.retainWords == 3) SetBit(ccfg, chip.retainOffset + 8, 0);
  return ccfg;
}

Bytes MakeScfg(const host::ChipFacts& chip, std::uint32_t seed) {
  Bytes scfg = Noise(chip.scfg.size, seed);
  scfg[0x08] = 0xAA;
  std::fill(scfg.begin() + kKeyRing + 2 * kKeySize, scfg.end(), std::uint8_t{0xFF});
  return scfg;
}

}  // namespace

Bytes Noise(std::size_t size, std::uint32_t seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<std::uint8_t>(random()); });
  return bytes;
}

void RequirePassword(const host::DeviceDescription& device, TestImage& image) {
  // sha256sum of kPassword
  constexpr std::uint8_t kHash[] = {0xfd, 0x4d, 0x49, 0xe7, 0xa2, 0xcf, 0x6c, 0xc1, 0xc0, 0x02, 0x17,
                                    0xe5, 0x98, 0x53, 0x83, 0x74, 0x39, 0x28, 0x3a, 0x28, 0x41, 0x18,
                                    0x69, 0xe2, 0xb4, 0x28, 0x24, 0x6c, 0x7b, 0x63, 0xcc, 0xbf};
  image.ccfg[device.chip.authorizationTypeOffset] = 0xA5;
  std::copy(std::begin(kHash), std::end(kHash), image.ccfg.begin() + device.chip.authorizationHashOffset);
}

void PutCrcRight(Bytes& sector, host::CoveredRange range) {
  std::uint32_t crc = 0xFFFF'FFFF;
  for (std::uint32_t i = range.offset; i < range.offset + range.length; ++i) {
    crc ^= sector[i];
    for (int bit = 0; bit < 8; ++bit) crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xEDB8'8320 : 0);
  }
  for (unsigned i = 0; i < 4; ++i)
    sector[range.offset + range.length + i] = static_cast<std::uint8_t>(~crc >> 8 * i);
}

std::vector<host::ImageSegment> TestImage::Segments(const host::DeviceDescription& device) const {
  std::vector<host::ImageSegment> segments = main;
  segments.push_back({device.chip.ccfg.base, ccfg});
  segments.push_back({device.chip.scfg.base, scfg});
  if (device.chip.otp.size != 0) segments.push_back(otp);
  segments.insert(segments.end(), ram.begin(), ram.end());
  return segments;
}

bool IsMarkedRetained(const host::DeviceDescription& device, std::uint32_t sector) {
  if (sector < 32)
    return std::find(std::begin(kSingleSectors), std::end(kSingleSectors), sector) !=
           std::end(kSingleSectors);
  if (sector < 256) return (sector - 32) / 8 == kGroup;
  return device.chip.retainWords == 3 && sector < 264;
}

TestImage MakeImage(const host::DeviceDescription& device, std::uint32_t seed) {
  TestImage image;
  // Whole sectors, a piece of one, single bytes at a sector's ends, a sector that the chip's CCFG may retain,
  // the last sector of all.
  image.main = {
      Segment(0, 2 * kSectorSize, seed + 1),
      Segment(3 * kSectorSize + 100, 57, seed + 2),
      Segment(5 * kSectorSize - 1, 2, seed + 3),
      Segment(30 * kSectorSize, 4 * kSectorSize + 8, seed + 4),
      Segment(39 * kSectorSize + 1000, 2 * kSectorSize, seed + 5),
      Segment(255 * kSectorSize,
              std::size_t{device.chip.mainSize > 256 * kSectorSize ? 2U : 1U} * kSectorSize, seed + 6)};
  if (device.chip.mainSize > 256 * kSectorSize)
    image.main.push_back(Segment(device.chip.mainSize - 4, 4, seed + 7));
  std::fill_n(image.main[3].data.begin() + (kFilledSector - 30) * kSectorSize, kSectorSize, kFillByte);

  image.ccfg = MakeCcfg(device.chip, seed + 8);
  image.scfg = MakeScfg(device.chip, seed + 9);
  image.otp = Segment(device.chip.otp.base + 12, 300, seed + 10);
  const std::uint32_t ram = device.chip.ram.base;
  image.ram = {Segment(ram, 16, seed + 11), Segment(ram + 0x101, 33, seed + 12),
               Segment(ram + device.chip.ram.size - 5, 5, seed + 13)};
  return image;
}

Bytes CcfgWithCrcs(const host::DeviceDescription& device, Bytes ccfg) {
  const host::ChipFacts& chip = device.chip;
  for (const auto& range : {chip.bootCrc, chip.ccfgCrc, chip.userRecordCrc, chip.debugCrc})
    PutCrcRight(ccfg, range);
  return ccfg;
}

Bytes ScfgWithCrc(const host::DeviceDescription& device, Bytes scfg) {
  PutCrcRight(scfg, device.chip.scfgCrc);
  return scfg;
}

Bytes WithoutUserRecord(const host::DeviceDescription& device, Bytes ccfg) {
  const host::CoveredRange record = device.chip.userRecord;
  std::fill_n(ccfg.begin() + record.offset, record.length, std::uint8_t{0xFF});
  return ccfg;
}

Bytes Laid(const std::vector<host::ImageSegment>& segments, std::uint32_t base, std::size_t size,
           std::uint8_t fill) {
  Bytes region(size, fill);
  for (const host::ImageSegment& segment : segments)
    std::copy(segment.data.begin(), segment.data.end(), region.begin() + (segment.address - base));
  return region;
}
