#include <stdexcept>

#include "DataSection.h"
#include "DeviceNumbers.h"
#include "FlashDeviceTovik.h"

namespace {

constexpr std::uint32_t kAliasBit = 1U << 28;
constexpr std::uint32_t kLastAddress = 0xFFFF'FFFF;

}  // namespace

void FlashDeviceTovik::WriteDataToFlash(const unsigned char* data, unsigned int address, int length,
                                        short page) {
  // Everything below counts in 32 bits: a sum that wraps would take the block for MAIN flash and CCFG.
  if (length < 0 || std::uint64_t{address} + static_cast<std::uint32_t>(length) > kLastAddress)
    throw std::runtime_error("Internal error in Flash Loader: The block does not fit in 32-bit addresses.");
  load.verificationOnly = IsImageVerificationEnabled();
  ReadDeviceInfo();
  if (HasFlashAlias(identity.device)) address &= ~kAliasBit;

  const bool withinMain = AnyRangeWithinMainFlash(address, length);
  const bool withinCcfg = !withinMain && AnyRangeWithinCcfg(address, length);
  if (withinCcfg) NoteUserRecord(address, length);
  const bool touchesFlash =
      withinMain || withinCcfg || AnyRangeWithinScfg(address, length) || AnyRangeWithinOtp(address, length);
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
  for (const DataSection& section : sections)
    WriteDataToFlashInternal(section.data, section.address, static_cast<int>(section.length), page);
}

void FlashDeviceTovik::WriteDataToFlashInternal(const unsigned char* data, unsigned int address, int length,
                                                short) {
  const Destination destination = DestinationOf(address, length);
  if (destination == Destination::Ccfg) NoteUserRecord(address, length);
  // The sector filter can leave a piece in a region although its block, as a whole, lay in none and opened
  // nothing. The chip is not in SACI then, and the stores have no size.
  if (destination != Destination::Ram && !load.programmingInitialised)
    throw std::runtime_error("Image data of a block that lies only partly in flash cannot be programmed");

  switch (destination) {
    case Destination::Ccfg:
      if (load.userRecordOnly) {
        ProgramCcfgUserRecord(data, address, length);
      } else if (static_cast<std::uint32_t>(length) > map.CcfgSize) {
        // Counted from the piece's start: a piece of CCFG and OTP begins at the CCFG's base.
        StoreCcfg(data, address, static_cast<int>(map.CcfgSize));
        StoreOtp(data + map.CcfgSize, address + map.CcfgSize, length - static_cast<int>(map.CcfgSize));
      } else {
        StoreCcfg(data, address, length);
      }
      break;
    case Destination::Otp: StoreOtp(data, address, length); break;
    case Destination::Scfg: StoreScfg(data, address, length); break;
    case Destination::MainFlash: ProgramMainFlash(data, address, length); break;
    case Destination::Ram: StoreRamData(data, address, length); break;
  }
}

// The order of the questions decides, and differs from the intake's: CCFG first.
FlashDeviceTovik::Destination FlashDeviceTovik::DestinationOf(unsigned int address, int length) {
  if (AnyRangeWithinCcfg(address, length)) return Destination::Ccfg;
  if (AnyRangeWithinOtp(address, length)) return Destination::Otp;
  if (AnyRangeWithinScfg(address, length)) return Destination::Scfg;
  if (AnyRangeWithinMainFlash(address, length)) return Destination::MainFlash;
  return Destination::Ram;
}

void FlashDeviceTovik::NoteUserRecord(unsigned int address, int length) {
  if (address == map.userRecordAddress && map.CcfgUserRecordSize >= static_cast<std::uint32_t>(length))
    load.userRecordOnly = true;
}
