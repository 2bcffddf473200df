#include <map>
#include <stdexcept>

#include "DeviceNumbers.h"
#include "FlashDeviceTovik.h"
#include "RetainField.h"

namespace {

constexpr char kNoErase[] = "Do not erase sectors (program load only)";
constexpr char kChipErase[] = "Chip Erase";
constexpr char kChipEraseRetainMain[] = "Chip Erase (retain sectors specified in CCFG)";
constexpr char kRetainMainAndConfiguration[] = "Retain MAIN sectors and CCFG and SCFG";
constexpr char kRetainConfiguration[] = "Retain CCFG and SCFG sectors";

const std::map<std::string, EraseType> s_eraseTypeMap = {
    {kNoErase, EraseType::None},
    {kChipErase, EraseType::Chip},
    {kChipEraseRetainMain, EraseType::RetainMain},
    {kRetainMainAndConfiguration, EraseType::RetainMainAndConfiguration},
    {kRetainConfiguration, EraseType::RetainConfiguration},
};

}  // namespace

EraseType FlashDeviceTovik::GetEraseType() {
  ReadDeviceInfo();
  std::string name;
  if (!IsNewerPart(identity.device))
    name = GetProperty<std::string>("FlashEraseSetting");
  else if (GetProperty<bool>("NoFlashErase", false))
    name = kNoErase;
  else if (GetProperty<bool>("RetainCcfgScfg", false) && HasHsm())
    name = GetProperty<bool>("RetainMainSectors", false) ? kRetainMainAndConfiguration : kRetainConfiguration;
  else
    name = GetProperty<bool>("RetainMainSectors", false) ? kChipEraseRetainMain : kChipErase;

  const auto type = s_eraseTypeMap.find(name);
  if (type != s_eraseTypeMap.end()) return type->second;
  utility.ReportError(std::string("Unknown erase option. Using \"") + kNoErase + "\"");
  return EraseType::None;
}

void FlashDeviceTovik::EraseAsConfigured() {
  switch (GetEraseType()) {
    case EraseType::None: break;
    case EraseType::Chip: ChipErase(false, false); break;
    case EraseType::RetainMain: ChipErase(true, false); break;
    case EraseType::RetainMainAndConfiguration: ChipErase(true, true); break;
    case EraseType::RetainConfiguration: ChipErase(false, true); break;
  }
}

void FlashDeviceTovik::ChipErase(bool retainMainSectors, bool retainCcfgScfg) {
  if (IsVerboseEnabled()) DebugLog("Performing Chip Erase");
  std::vector<std::uint32_t> words;
  RequireSaciSuccess(saci.EraseChip(retainMainSectors, retainCcfgScfg, &words),
                     "Error occurred when erasing the chip - ");

  if (retainMainSectors) {
    InterpretChipEraseRetainSectors(words);
    if (IsVerboseEnabled()) LogRetainedSectors();
  } else {
    load.retainedSectors.assign(identity.mainSectorCount, false);
  }
  load.ccfgScfgRetained = retainCcfgScfg;
  if (!retainCcfgScfg) load.ccfgScfgErased = true;
}

void FlashDeviceTovik::LogRetainedSectors() {
  const std::vector<std::string> retained = ConvertToAllowedSectorRanges(load.retainedSectors, true);
  if (retained.empty())
    DebugLog("Chip Erase: No sectors retained");
  else
    DebugLog("Chip Erase: Retained the following sector(s): %s", JoinRanges(retained).c_str());
}

void FlashDeviceTovik::InterpretChipEraseRetainSectors(const std::vector<unsigned int>& words) {
  load.retainedSectors.assign(identity.mainSectorCount, false);
  if (words.empty()) {
    DebugLog("No sectors were retained during Chip Erase - only allowed if CCFG is valid");
    return;
  }
  RequireRetainFieldSize(words);
  ReadDeviceInfo();
  load.retainedSectors =
      DecodeRetainField(words, IsNewerPart(identity.device) ? 4 : 0, identity.mainSectorCount);
}

bool FlashDeviceTovik::BlankCheck() {
  if (identity.mainFlashSize == 0)
    throw std::runtime_error("Error performing blank check - Flash size is unknown.");

  const auto isBlank = [this](std::uint8_t result, const char* programmedText, const char* failurePrefix) {
    if (result == SACI_RESULT_BLANK_CHECK_FAILED) {
      utility.ReportInfo(programmedText);
      return false;
    }
    RequireSaciSuccess(result, failurePrefix);
    return true;
  };
  const bool ccfgBlank = isBlank(saci.VerifyCcfgSector(false, false, true, 0, 0, 0, 0),
                                 "Blank Check: Device CCFG sector is programmed",
                                 "Error performing blank check on CCFG sector- ");
  const bool mainBlank = isBlank(saci.VerifyMainSectors(0, identity.mainFlashSize, 0, true),
                                 "Blank Check: Device MAIN flash is programmed",
                                 "Error performing blank check on MAIN flash bank - ");
  const bool blank = ccfgBlank && mainBlank;
  if (blank) utility.ReportInfo("Blank Check: Device flash is blank");
  return blank;
}
