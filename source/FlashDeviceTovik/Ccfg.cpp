#include <algorithm>

#include "ConfigurationStore.h"
#include "DebugAuthorizationFields.h"
#include "FlashDeviceTovik.h"

void FlashDeviceTovik::StoreCcfg(const std::uint8_t* data, std::uint32_t address, int length) {
  if (GetProperty<bool>("PermissionsSetting", true)) CheckPermissions(data, length, "CcfgPermissions");
  CopyIntoStore(load.ccfgImage, map.CcfgBase, {data, static_cast<std::size_t>(length)}, address);
  load.ccfgStored = true;
}

void FlashDeviceTovik::ProgramStoredCcfg() {
  // Changed authorization fields always get fresh CRCs.
  if (OverwriteCcfgFields() || GetProperty<bool>("CcfgOverwriteCrcsToggle", false))
    UpdateCrc32Fields("CcfgCrcFields", load.ccfgImage);

  bool skipUserRecord = true;
  if (!load.verificationOnly) {
    skipUserRecord = GetProperty<bool>("CcfgSkipProgrammingUserRecord", true);
    RequireSaciSuccess(saci.ProgCcfgSector(load.ccfgImage, skipUserRecord), "Error when programming CCFG - ");
  }

  const std::uint32_t bootCfgCrc = CalcCrc32Field("ccfg.bootCfg.crc32Info", load.ccfgImage);
  const std::uint32_t ccfgCrc = CalcCrc32Field("ccfg.crc32Info", load.ccfgImage);
  const std::uint32_t userRecordCrc = CalcCrc32Field("ccfg.userRecord.crc32Info", load.ccfgImage);
  const std::uint32_t debugCfgCrc = CalcCrc32Field("ccfg.debugCfg.crc32Info", load.ccfgImage);
  const bool skipUserRecordCrc = !GetProperty<bool>("CcfgVerifyUserRecordCrcToggle", true) || skipUserRecord;
  RequireSaciSuccess(
      saci.VerifyCcfgSector(true, skipUserRecordCrc, false, bootCfgCrc, ccfgCrc, userRecordCrc, debugCfgCrc),
      "Error when verifying CCFG - ");
  load.ccfgProgrammed = true;
  load.ccfgMarkerByteZero =
      ReadDebugAuthorization(load.ccfgImage, map.CcfgSize) == DebugAuthorization::NotAllowed;
}

// A piece longer than the record is not a user record: nothing happens.
void FlashDeviceTovik::ProgramCcfgUserRecord(const std::uint8_t* data, std::uint32_t, int length) {
  std::vector<std::uint8_t> record(map.CcfgUserRecordSize, 0);
  if (record.size() < static_cast<std::uint32_t>(length)) return;
  std::copy_n(data, length, record.begin());
  if (!load.verificationOnly)
    RequireSaciSuccess(saci.ProgCcfgUserRecord(record), "Error when programming CCFG user record - ");
  const bool skipCrc = !GetProperty<bool>("CcfgVerifyUserRecordCrcToggle", true);
  RequireSaciSuccess(saci.VerifyCcfgSector(false, skipCrc, false, 0, 0, 0, 0),
                     "Error when verifying CCFG - ");
}
