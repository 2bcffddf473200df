#include "host/plan/Preflight.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace host {

namespace {

// The debug authorization byte of the CCFG, as the chip reads it.
constexpr std::uint8_t kDebugOpen = 0x5A;
constexpr std::uint8_t kDebugByPassword = 0xA5;

constexpr std::string_view kNoErase = "Do not erase sectors (program load only)";
constexpr std::string_view kChipErase = "Chip Erase";
constexpr std::string_view kRetainMarked = "Chip Erase (retain sectors specified in CCFG)";
constexpr std::string_view kRetainAll = "Retain MAIN sectors and CCFG and SCFG";
constexpr std::string_view kRetainConfiguration = "Retain CCFG and SCFG sectors";

bool IsOn(const PropertyStore& settings, std::string_view name) {
  return settings.Get(name) == "1";
}

// Older parts have one setting with a choice, newer ones a few switches.
std::string_view EraseName(const PropertyStore& settings) {
  if (const std::string* choice = settings.Find("FlashEraseSetting")) return *choice;
  if (IsOn(settings, "NoFlashErase")) return kNoErase;
  const bool keepsMain = IsOn(settings, "RetainMainSectors");
  if (IsOn(settings, "RetainCcfgScfg")) return keepsMain ? kRetainAll : kRetainConfiguration;
  return keepsMain ? kRetainMarked : kChipErase;
}

// The debug authorization that the chip will have: the setting that overwrites it, else the image's byte;
// nothing when the load brings no CCFG.
std::optional<std::uint8_t> FutureDebugAuthorization(const LoadPlan& plan, const DeviceDescription& device,
                                                     const PropertyStore& settings) {
  for (const ImageBlock& block : plan.blocks) {
    if (block.region != Region::Ccfg) continue;
    if (IsOn(settings, "CcfgOverwriteAuthorizationFieldsToggle")) {
      const std::string type = settings.Get("CcfgOverwriteAuthorizationFieldsTypeChoicelist");
      if (type == "Debug always allowed") return kDebugOpen;
      if (type == "Debug not allowed") return std::uint8_t{0};
      if (type == "Require debug authentication") return kDebugByPassword;
    }
    const std::uint32_t offset = device.map.ccfg.base + device.chip.authorizationTypeOffset - block.address;
    if (offset < block.data.size()) return block.data[offset];
  }
  return std::nullopt;
}

bool HasPassword(const PropertyStore& settings) {
  const bool isHex = settings.Get("DebugPasswordFormatList") == "Hex";
  return !settings.Get(isHex ? "DebugPasswordHex" : "DebugPassword").empty();
}

void WarnOfErase(const LoadPlan& plan, const DeviceDescription& device, const EraseChoice& erase,
                 std::vector<std::string>& warnings) {
  const bool isUserRecordOnly = plan.Has(Region::UserRecord);
  if (erase.erasesConfiguration && !isUserRecordOnly) {
    if (!plan.Has(Region::Ccfg))
      warnings.push_back(
          "the chip will be erased and the images hold no CCFG: it will not start its application until one "
          "is programmed");
    if (device.map.scfg.size != 0 && !plan.Has(Region::Scfg))
      warnings.push_back("the chip will be erased and the images hold no SCFG");
  }
  if (!erase.erases && plan.Has(Region::Main))
    warnings.push_back(
        "nothing is erased before programming: sectors that are not blank will fail to verify");
}

void WarnOfDebugging(const LoadPlan& plan, const DeviceDescription& device, const PropertyStore& settings,
                     std::vector<std::string>& warnings) {
  const std::optional<std::uint8_t> authorization = FutureDebugAuthorization(plan, device, settings);
  if (!authorization || *authorization == kDebugOpen) return;
  if (*authorization != kDebugByPassword) {
    warnings.push_back("the CCFG closes debugging for good: only a chip erase will open the chip again");
  } else if (!HasPassword(settings)) {
    warnings.push_back(
        "the CCFG asks for a debug password and none is set (DebugPassword or DebugPasswordHex)");
  }
}

}  // namespace

EraseChoice ChosenErase(const PropertyStore& settings) {
  const std::string_view name = EraseName(settings);
  EraseChoice choice;
  choice.text = name;
  choice.erasesConfiguration = name == kChipErase || name == kRetainMarked;
  choice.keepsMarkedSectors = name == kRetainMarked || name == kRetainAll;
  choice.erases = choice.erasesConfiguration || choice.keepsMarkedSectors || name == kRetainConfiguration;
  return choice;
}

std::vector<std::string> WarnBeforeLoad(const LoadPlan& plan, const DeviceDescription& device,
                                        const PropertyStore& settings) {
  std::vector<std::string> warnings;
  WarnOfErase(plan, device, ChosenErase(settings), warnings);
  WarnOfDebugging(plan, device, settings, warnings);
  if (plan.Has(Region::Otp))
    warnings.push_back("the images hold OTP data: what is programmed there can never be changed");
  for (const ImageBlock& block : plan.blocks) {
    if (block.region != Region::Outside) continue;
    warnings.push_back(
        fmt::format("{} bytes at 0x{:08x} lie in no memory of {}; they will be written as RAM data",
                    block.data.size(), block.address, device.name));
  }
  return warnings;
}

}  // namespace host
