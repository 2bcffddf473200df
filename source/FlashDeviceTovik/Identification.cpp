#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

#include "DeviceNumbers.h"
#include "FlashDeviceTovik.h"

namespace {

// DEVICEID: VERSION [31:28], DEVICE [27:12]. PARTID: variant [23:16], part number [15:0].
constexpr std::uint32_t DeviceOf(std::uint32_t deviceId) {
  return deviceId >> 12 & 0xFFFF;
}
constexpr std::uint32_t VersionOf(std::uint32_t deviceId) {
  return deviceId >> 28;
}

constexpr std::uint32_t kDeviceAndVersion = 0xF'FFFF;
constexpr std::uint32_t kDeviceOnly = 0xFFFF;

const std::string s_unknownName = "-";

// The last row wins: tables list revisions from old to new.
const FlashUtil::RevisionRow* FindLastRevision(const std::vector<FlashUtil::RevisionRow>& table,
                                               std::uint32_t key, std::uint32_t mask) {
  const auto row = std::find_if(table.rbegin(), table.rend(), [&](const FlashUtil::RevisionRow& candidate) {
    return ((static_cast<std::uint32_t>(std::get<0>(candidate)) ^ key) & mask) == 0;
  });
  return row != table.rend() ? &*row : nullptr;
}

// No text here goes through a stream: a stream writes numbers as the host's locale groups them.
std::string Hex(std::uint32_t value) {
  std::array<char, 9> digits{};
  std::snprintf(digits.data(), digits.size(), "%x", value);
  return digits.data();
}

std::string RevisionNumber(std::uint32_t major, std::uint32_t minor) {
  return std::to_string(major) + "." + std::to_string(minor);
}

bool Matches(long key, std::uint32_t value) {
  return key < 0 || key == static_cast<long>(value);
}

}  // namespace

std::uint32_t FlashDeviceTovik::Convert(Debugger::Address address) const {
  AssertContract(Debugger::Is32Bit(address), "false", "source/FlashDeviceTovik");
  return static_cast<std::uint32_t>(Extract(address));
}

bool FlashDeviceTovik::isBleHighPg2OrNewer() const {
  return (identity.device == kDeviceBleHigh && identity.revisionMajor > 1) ||
         identity.device == kDeviceBleHighSecond;
}

bool FlashDeviceTovik::isBleMid() const {
  return identity.device == kDeviceBleMid;
}

bool FlashDeviceTovik::ReadDeviceInfo() {
  bool complete = ReadRevisionInfo();
  complete = ReadFlashSize() && complete;
  complete = ReadRamSize() && complete;
  PopulateDeviceInfoFields();
  return complete;
}

bool FlashDeviceTovik::ReadRevisionInfo() {
  ConnectDebugPort();
  const std::uint32_t deviceId = ReadReg(Convert(utility.LookupReg("CFGAP_DEVICEID")));
  const std::uint32_t key = deviceId >> 12;
  identity.device = DeviceOf(deviceId);
  identity.revisionTable.clear();
  helper->ReadRevisionsTranslationFromXml(identity.revisionTable);

  const FlashUtil::RevisionRow* row = FindLastRevision(identity.revisionTable, key, kDeviceAndVersion);
  const bool versionKnown = row != nullptr;
  if (!versionKnown) row = FindLastRevision(identity.revisionTable, key, kDeviceOnly);
  if (row == nullptr) {
    utility.ReportInfo("DEVICEID.DEVICE (DEVICEID[27:12]) '0x" + Hex(identity.device) +
                       "' unknown for selected target. \nDevice revision cannot be determined.");
    identity.revisionMajor = 0;
    identity.revisionMinor = 0;
    identity.revisionName = s_unknownName;
    return true;
  }

  helper->ConvertRevisionStringToMajorMinor(std::get<1>(*row), identity.revisionMajor,
                                            identity.revisionMinor);
  identity.revisionName = std::get<2>(*row);
  if (versionKnown) return true;
  const std::string number = RevisionNumber(identity.revisionMajor, identity.revisionMinor);
  utility.ReportInfo(
      "DEVICEID.VERSION (DEVICEID[31:28]) '0x" + Hex(VersionOf(deviceId)) +
      "' unknown for selected target. Assuming latest known revision: Rev. " +
      (identity.revisionName != s_unknownName ? identity.revisionName + " (" + number + ")." : number + "."));
  return true;
}

bool FlashDeviceTovik::ReadFlashSize() {
  identity.mainFlashSize = ReadMemorySize("DeviceInfoFlashSizeTranslation");
  if (map.SectorSize == 0)
    throw std::runtime_error("Internal error in Flash Loader: The sector size of MAIN flash is not known.");
  identity.mainSectorCount = identity.mainFlashSize / map.SectorSize;
  if (identity.mainFlashSize == 0)
    utility.ReportInfo("The FLASH size of the target could not be determined.");
  return true;
}

bool FlashDeviceTovik::ReadRamSize() {
  identity.ramSize = ReadMemorySize("DeviceInfoRAMSizeTranslation");
  if (identity.ramSize == 0) utility.ReportInfo("The SRAM size of the target could not be determined.");
  return true;
}

std::uint32_t FlashDeviceTovik::ReadMemorySize(const std::string& translationProperty) {
  ConnectDebugPort();
  const std::uint32_t deviceId = ReadReg(Convert(utility.LookupReg("CFGAP_DEVICEID")));
  const std::uint32_t partId = ReadReg(Convert(utility.LookupReg("CFGAP_PARTID")));
  std::vector<FlashUtil::SizeRow> table;
  helper->ReadSizeTranslationFromXml(translationProperty, table);
  for (const auto& [device, partNumber, variant, size] : table)
    if (Matches(device, DeviceOf(deviceId)) && Matches(partNumber, partId & 0xFFFF) &&
        Matches(variant, partId >> 16 & 0xFF))
      return static_cast<std::uint32_t>(size);
  return 0;
}

void FlashDeviceTovik::PopulateDeviceInfoFields() {
  std::string flash = "--";
  if (identity.mainFlashSize != 0)
    flash = std::to_string(identity.mainFlashSize >> 10) + " KB (" +
            std::to_string(identity.mainSectorCount) + " sectors)";
  utility.SetValueOfProperty("DeviceInfoFlashSize", flash);

  std::string ram = "--";
  if (identity.ramSize != 0) ram = std::to_string(identity.ramSize >> 10) + " KB";
  utility.SetValueOfProperty("DeviceInfoRAMSize", ram);

  std::string revision = "--";
  if (identity.revisionMajor != 0 || identity.revisionMinor != 0 || identity.revisionName != s_unknownName)
    revision =
        identity.revisionName + " (" + RevisionNumber(identity.revisionMajor, identity.revisionMinor) + ")";
  utility.SetValueOfProperty("DeviceInfoRevision", revision);
}
