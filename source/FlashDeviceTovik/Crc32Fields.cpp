#include <cstring>
#include <stdexcept>

#include "Crc32.h"
#include "FlashDeviceTovik.h"

// CRC fields of CCFG and SCFG. The field's info property gives the offset and length of the covered range;
// the CRC word follows the range.

namespace {

[[noreturn]] void ThrowDoesNotFit(const std::string& infoProperty) {
  const char* const sector = infoProperty.find("ccfg") != std::string::npos ? "CCFG" : "SCFG";
  throw std::runtime_error("Offset and length defined in flash property \"" + infoProperty +
                           "\" does not fit in " + sector);
}

}  // namespace

std::uint32_t FlashDeviceTovik::CalcCrc32Field(const std::string& infoProperty,
                                               const std::vector<std::uint8_t>& sector, std::uint32_t& offset,
                                               std::uint32_t& length) const {
  helper->ReadAddressLengthPropertyFromXml(infoProperty, offset, length);
  if (std::uint64_t{offset} + length > sector.size()) ThrowDoesNotFit(infoProperty);
  return CalcCRC32(sector.data() + offset, length);
}

std::uint32_t FlashDeviceTovik::CalcCrc32Field(const std::string& infoProperty,
                                               const std::vector<std::uint8_t>& sector) const {
  std::uint32_t offset = 0;
  std::uint32_t length = 0;
  return CalcCrc32Field(infoProperty, sector, offset, length);
}

std::string FlashDeviceTovik::getCrcFieldPropertyInfo(const std::string& fieldName) const {
  if (fieldName.find("scfg") == std::string::npos) return fieldName + "Info";
  return HasHsm() ? "scfg2.crc32Info" : "scfg.crc32Info";
}

void FlashDeviceTovik::UpdateCrc32Fields(const std::string& listProperty, std::vector<std::uint8_t>& sector) {
  const auto list = GetProperty<std::string>(listProperty);
  const bool skipUserRecord = GetProperty<bool>("CcfgSkipProgrammingUserRecord", true);
  const std::uint32_t sectorBase = listProperty == "ScfgCrcFields" ? map.ScfgBase : map.CcfgBase;
  for (const std::string& name : GetSubStrings(list, ',')) {
    if (skipUserRecord && name == "ccfg.userRecord.crc32") continue;
    UpdateCrc32Field(name, sectorBase, sector);
  }
}

void FlashDeviceTovik::UpdateCrc32Field(const std::string& fieldName, std::uint32_t sectorBase,
                                        std::vector<std::uint8_t>& sector) {
  const std::string infoProperty = getCrcFieldPropertyInfo(fieldName);
  std::uint32_t offset = 0;
  std::uint32_t length = 0;
  const std::uint32_t crc = CalcCrc32Field(infoProperty, sector, offset, length);
  const std::size_t wordOffset = std::size_t{offset} + length;
  if (wordOffset + sizeof crc > sector.size()) ThrowDoesNotFit(infoProperty);

  std::uint32_t stored = 0;
  std::memcpy(&stored, &sector[wordOffset], sizeof stored);
  if (stored == crc) return;
  const std::uint32_t firstCovered = sectorBase + offset;
  DebugLog(
      "Updating CRC32 field %s @ address 0x%08X, based on data in the range [0x%08X, 0x%08X]. Value changes "
      "from 0x%08X to 0x%08X",
      fieldName.c_str(), firstCovered + length, firstCovered, firstCovered + length - 1, stored, crc);
  std::memcpy(&sector[wordOffset], &crc, sizeof crc);
}
