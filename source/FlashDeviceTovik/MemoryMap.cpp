#include "FlashDeviceTovik.h"

namespace {

// Where MAIN flash is taken to end while its size is not known.
constexpr std::uint32_t kLargestMainFlash = 0x100'0000;

// Containment of the whole range, with 32-bit sums.
bool LiesWithin(std::uint32_t address, std::uint32_t length, std::uint32_t base, std::uint32_t size) {
  return size != 0 && address + length <= base + size && address >= base;
}

}  // namespace

void FlashDeviceTovik::ReadStaticFlashPropertiesInfo() {
  map.SectorSize = GetProperty<unsigned int>("SectorSize");
  map.CcfgBase = GetProperty<unsigned int>("CcfgBase");
  map.CcfgSize = GetProperty<unsigned int>("CcfgSize");
  map.CcfgUserRecordSize = GetProperty<unsigned int>("CcfgUserRecordSize");

  // Read as text first, so that a missing property is told by its name like the others.
  const std::string userRecordInfo = "ccfg.userRecord.crc32Info";
  (void)GetProperty<std::string>(userRecordInfo);
  std::uint32_t offset = 0;
  std::uint32_t length = 0;
  helper->ReadAddressLengthPropertyFromXml(userRecordInfo, offset, length);
  map.userRecordAddress = map.CcfgBase + offset;

  map.ScfgBase = GetProperty<unsigned int>("ScfgBase", 0U);
  map.ScfgSize = GetProperty<unsigned int>("ScfgSize", 0U);
  map.OtpBase = GetProperty<unsigned int>("OtpBase", 0U);
  map.OtpSize = GetProperty<unsigned int>("OtpSize", 0U);
}

unsigned int FlashDeviceTovik::GetOffsetInSector(unsigned int address) {
  return address % map.SectorSize;
}

unsigned int FlashDeviceTovik::GetSectorBaseAddress(unsigned int address) {
  return map.SectorSize * (address / map.SectorSize);
}

bool FlashDeviceTovik::AnyRangeWithinMainFlash(unsigned int address, int length) {
  const std::uint32_t size = identity.mainFlashSize != 0 ? identity.mainFlashSize : kLargestMainFlash;
  return LiesWithin(address, static_cast<std::uint32_t>(length), 0, size);
}

bool FlashDeviceTovik::AnyRangeWithinCcfg(unsigned int address, int length) {
  const auto given = static_cast<std::uint32_t>(length);
  const std::uint32_t tested = given == map.CcfgSize + map.OtpSize ? given - map.OtpSize : given;
  return LiesWithin(address, tested, map.CcfgBase, map.CcfgSize);
}

bool FlashDeviceTovik::AnyRangeWithinScfg(unsigned int address, int length) {
  return LiesWithin(address, static_cast<std::uint32_t>(length), map.ScfgBase, map.ScfgSize);
}

bool FlashDeviceTovik::AnyRangeWithinOtp(unsigned int address, int length) {
  return LiesWithin(address, static_cast<std::uint32_t>(length), map.OtpBase, map.OtpSize);
}
