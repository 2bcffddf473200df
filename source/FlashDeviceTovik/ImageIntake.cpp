#include <stdexcept>

#include "DataSection.h"
#include "DeviceNumbers.h"
#include "FlashDeviceTovik.h"

namespace {

constexpr std::uint32_t kAliasBit = 1U << 28;

}  // namespace

void FlashDeviceTovik::WriteDataToFlash(unsigned char const* data, unsigned int address, int length,
                                        short page) {
  if (length < 0) throw std::runtime_error("Internal error in Flash Loader: The block's length is negative.");
  load.verificationOnly = IsImageVerificationEnabled();
  ReadDeviceInfo();
  if (HasFlashAlias(identity.device)) address &= ~kAliasBit;

  bool const touchesFlash = AnyRangeWithinMainFlash(address, length) || AnyRangeWithinCcfg(address, length) ||
                            AnyRangeWithinScfg(address, length) || AnyRangeWithinOtp(address, length);
  if (touchesFlash && !load.programmingInitialised) initFlashProgramming();

  if (load.userRecordOnly) {
    WriteDataToFlashInternal(data, address, length, page);
    return;
  }

  std::vector<DataSection> sections{{data, address, static_cast<std::uint32_t>(length)}};
  if (AnyRangeWithinMainFlash(address, length))
    ExcludeSpecificSectorsFromDataSections(&sections, load.allowedSectorRanges, map.SectorSize);
  if (IsSkipSectorsFilledWithOptionEnabledAndValid())
    ExcludeSectorsFilledWithValueFromDataSections(&sections, load.fillValue, map.SectorSize);
  for (DataSection const& section : sections)
    WriteDataToFlashInternal(section.data, section.address, static_cast<int>(section.length), page);
}

// The order of the tests decides, and differs from the one above: CCFG first, for what asking it sets.
void FlashDeviceTovik::WriteDataToFlashInternal(unsigned char const* data, unsigned int address, int length,
                                                short) {
  if (AnyRangeWithinCcfg(address, length)) {
    if (load.userRecordOnly) {
      ProgramCcfgUserRecord(data, address, length);
    } else if (static_cast<std::uint32_t>(length) > map.CcfgSize) {
      // Counted from the piece's start: a piece of CCFG and OTP begins at the CCFG's base.
      StoreCcfg(data, address, static_cast<int>(map.CcfgSize));
      StoreOtp(data + map.CcfgSize, address + map.CcfgSize, length - static_cast<int>(map.CcfgSize));
    } else {
      StoreCcfg(data, address, length);
    }
  } else if (AnyRangeWithinOtp(address, length)) {
    StoreOtp(data, address, length);
  } else if (AnyRangeWithinScfg(address, length)) {
    StoreScfg(data, address, length);
  } else if (AnyRangeWithinMainFlash(address, length)) {
    ProgramMainFlash(data, address, length);
  } else {
    StoreRamData(data, address, length);
  }
}
