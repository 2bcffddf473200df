#include <algorithm>

#include "Crc32.h"
#include "FlashDeviceTovik.h"

void FlashDeviceTovik::initFlashProgramming() {
  if (load.programmingInitialised) return;
  saci.ResetInterfaceState();
  IssuePinResetAndEnterSaci();
  ReadDeviceInfo();
  load.ccfgImage.assign(map.CcfgSize, 0);
  load.scfgImage.assign(map.ScfgSize, 0);
  load.otpImage.assign(map.OtpSize, 0);
  load.retainedSectors.resize(identity.mainSectorCount, false);
  if (!load.verificationOnly && !load.userRecordOnly) EraseAsConfigured();
  ComputeAllowedSectorRanges();
  load.programmingInitialised = true;
}

// What the user wants programmed and the erase did not retain.
void FlashDeviceTovik::ComputeAllowedSectorRanges() {
  SectorMask allowed = IsSkipSpecificSectorsOptionEnabled() ? ConvertRangeToBoolVector("FlashPages")
                                                            : SectorMask(identity.mainSectorCount, true);
  const std::size_t count = std::min(allowed.size(), load.retainedSectors.size());
  for (std::size_t sector = 0; sector < count; ++sector)
    if (load.retainedSectors[sector]) allowed[sector] = false;
  load.allowedSectorRanges = ConvertToAllowedSectorRanges(allowed, true);

  if (!IsVerboseEnabled()) return;
  const std::vector<std::string> excluded = ConvertToAllowedSectorRanges(allowed, false);
  if (!excluded.empty())
    DebugLog("Skipping programming the following sector(s): %s", JoinRanges(excluded).c_str());
}

std::pair<std::uint32_t, std::vector<std::uint8_t>> FlashDeviceTovik::AlignMainFlashBySectors(
    const unsigned char* data, unsigned int address, int length) {
  const std::uint32_t base = GetSectorBaseAddress(address);
  const std::uint32_t offset = address - base;
  const std::uint32_t total = offset + static_cast<std::uint32_t>(length);
  const std::uint32_t excess = total % map.SectorSize;
  const std::uint32_t padding = excess == 0 ? 0 : map.SectorSize - excess;
  std::vector<std::uint8_t> buffer(total + padding, 0xFF);
  std::copy_n(data, length, buffer.begin() + offset);
  return {base, std::move(buffer)};
}

void FlashDeviceTovik::ProgramMainFlash(const unsigned char* data, unsigned int address, int length) {
  const auto [base, buffer] = AlignMainFlashBySectors(data, address, length);
  if (!load.verificationOnly)
    RequireSaciSuccess(saci.ProgMainPipelined(base, buffer, map.SectorSize),
                       "Error occurred when programming flash - ");
  const auto size = static_cast<std::uint32_t>(buffer.size());
  RequireSaciSuccess(saci.VerifyMainSectors(base, size, CalcCRC32(buffer.data(), size), false),
                     "Error when verifying flash - ");
  load.mainVerified = true;
}
