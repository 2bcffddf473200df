#include <cstring>
#include <stdexcept>

#include "Crc32.h"
#include "FlashDeviceTovik.h"

// CRC fields of CCFG and SCFG. The field's info property gives the offset and length of the covered range;
// the CRC word follows the range.

namespace {

[[noreturn]] void ThrowDoesNotFit(std::string const& infoProperty) {
  char const* const sector = infoProperty.find("ccfg") != std::string::npos ? "CCFG" : "SCFG";
  throw std::runtime_error("Offset and length defined in flash property \"" + infoProperty +
                           "\" does not fit in " + sector);
}

}  // namespace

std::uint32_t FlashDeviceTovik::CalcCrc32Field(std::string const& infoProperty,
                                               std::vector<std::uint8_t> const& sector, std::uint32_t& offset,
                                               std::uint32_t& length) const {
  helper->ReadAddressLengthPropertyFromXml(infoProperty, offset, length);
  if (std::uint64_t{offset} + length > sector.size()) ThrowDoesNotFit(infoProperty);
  return CalcCRC32(sector.data() + offset, length);
}

std::uint32_t FlashDeviceTovik::CalcCrc32Field(std::string const& infoProperty,
                                               std::vector<std::uint8_t> const& sector) const {
  std::uint32_t offset = 0;
  std::uint32_t length = 0;
  return CalcCrc32Field(infoProperty, sector, offset, length);
}

std::string FlashDeviceTovik::getCrcFieldPropertyInfo(std::string const& fieldName) const {
  if (fieldName.find("scfg") == std::string::npos) return fieldName + "Info";
  return isBleHighPg2OrNewer() || isBleMid() ? "scfg2.crc32Info" : "scfg.crc32Info";
}

void FlashDeviceTovik::UpdateCrc32Fields(std::string const& listProperty, std::vector<std::uint8_t>& sector) {
  auto const list = GetProperty<std::string>(listProperty);
  bool const skipUserRecord = GetProperty<bool>("CcfgSkipProgrammingUserRecord", true);
  std::uint32_t const sectorBase = listProperty == "ScfgCrcFields" ? map.ScfgBase : map.CcfgBase;
  for (std::string const& name : GetSubStrings(list, ',')) {
    if (skipUserRecord && name == "ccfg.userRecord.crc32") continue;
    UpdateCrc32Field(name, sectorBase, sector);
  }
}

void FlashDeviceTovik::UpdateCrc32Field(std::string const& fieldName, std::uint32_t sectorBase,
                                        std::vector<std::uint8_t>& sector) {
  std::string const infoProperty = getCrcFieldPropertyInfo(fieldName);
  std::uint32_t offset = 0;
  std::uint32_t length = 0;
  std::uint32_t const crc = CalcCrc32Field(infoProperty, sector, offset, length);
  std::size_t const wordOffset = std::size_t{offset} + length;
  if (wordOffset + sizeof crc > sector.size()) ThrowDoesNotFit(infoProperty);

  std::uint32_t stored = 0;
  std::memcpy(&stored, &sector[wordOffset], sizeof stored);
  if (stored == crc) return;
  std::uint32_t const firstCovered = sectorBase + offset;
  DebugLog(
      "Updating CRC32 field %s @ address 0x%08X, based on data in the range [0x%08X, 0x%08X]. Value changes "
      "from 0x%08X to 0x%08X",
      fieldName.c_str(), firstCovered + length, firstCovered, firstCovered + length - 1, stored, crc);
  std::memcpy(&sector[wordOffset], &crc, sizeof crc);
}
