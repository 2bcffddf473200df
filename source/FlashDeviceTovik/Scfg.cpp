#include "ConfigurationStore.h"
#include "FlashDeviceTovik.h"
#include "ScfgKeyRing.h"

void FlashDeviceTovik::StoreScfg(const std::uint8_t* data, std::uint32_t address, int length) {
  if (GetProperty<bool>("PermissionsSetting", true) && HasHsm())
    CheckPermissions(data, length, "ScfgPermissions");
  CopyIntoStore(load.scfgImage, map.ScfgBase, {data, static_cast<std::size_t>(length)}, address);
  load.scfgStored = true;
}

void FlashDeviceTovik::ProgramStoredScfg() {
  if (GetProperty<bool>("ScfgOverwriteCrcsToggle", false)) UpdateCrc32Fields("ScfgCrcFields", load.scfgImage);
  ReduceScfgKeyRing(load.scfgImage);

  if (!load.verificationOnly)
    RequireSaciSuccess(saci.ProgScfgSector(load.scfgImage), "Error when programming SCFG - ");
  const std::uint32_t crc = CalcCrc32Field(getCrcFieldPropertyInfo("scfg"), load.scfgImage);
  RequireSaciSuccess(saci.VerifyScfgSector(true, crc), "Error when verifying SCFG - ");
  load.scfgProgrammed = true;
}
