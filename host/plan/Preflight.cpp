#include "host/plan/Preflight.h"

#include <fmt/format.h>

#include <cstring>
#include <optional>

#include "host/plan/Crc32.h"
#include "host/plan/LoadMode.h"
#include "host/plan/MemoryText.h"
#include "host/plan/PermissionCheck.h"
#include "host/plan/SectorsLeftOut.h"
#include "host/plan/SettingsCheck.h"

namespace host {

namespace {

// The debug authorization byte of the CCFG, as the chip reads it.
constexpr std::uint8_t kDebugOpen = 0x5A;
constexpr std::uint8_t kDebugByPassword = 0xA5;

class Inspection {
 public:
  Inspection(const LoadPlan& ofPlan, const DeviceDescription& ofDevice, const PropertyStore& ofLoad)
      : plan(ofPlan),
        device(ofDevice),
        settings(ofLoad),
        mode(ModeOf(ofLoad)),
        erase(EraseOf(ofPlan, ofLoad)) {}

  Preflight Run(PreflightOptions options) {
    if (options.chipIsDescribed) found.refusals = Contradictions(device);
    CheckSettings(device, settings, found);
    CheckStrays(options.allowOutside);
    CheckPermissions(plan, settings, found);
    if (mode == LoadMode::Verify) {
      CheckVerification();
    } else {
      CheckUserRecord();
      WarnOfErase();
      WarnOfDebugging();
      WarnOfOtp();
    }
    return std::move(found);
  }

 private:
  void Refuse(std::string why) { found.refusals.push_back(std::move(why)); }
  void Warn(std::string what) { found.warnings.push_back(std::move(what)); }

  void CheckStrays(bool areAllowed) {
    for (const StrayRange& stray : plan.strays) {
      if (areAllowed) break;
      const std::string range = fmt::format("{} of {}", RangeText(stray.range), stray.image);
      if (stray.past == Region::Outside)
        Refuse(fmt::format("{} lies in no memory of {}", range, device.name));
      else
        Refuse(fmt::format("{} runs past the end of {} ({})", range, MemoryTitle(stray.past),
                           RangeText(RangeOf(device.map, stray.past))));
    }
    for (const ImageBlock& block : plan.blocks) {
      if (!areAllowed || block.region != Region::Outside) continue;
      Warn(fmt::format("{} bytes at 0x{:08x} lie in no memory of {}; they will {}", block.data.size(),
                       block.address, device.name,
                       mode == LoadMode::Verify ? "not be compared" : "be written as RAM data"));
    }
  }

  // The plug-in compares MAIN flash, then CCFG, then SCFG, and stops at the first that the images do not
  // hold.
  void CheckVerification() {
    const SectorsLeftOut leftOut = SectorsLeftOutOf(plan, device.map, settings);
    if (plan.Has(Region::UserRecord)) {
      Refuse("the images hold only the user record of the CCFG, which cannot be verified by itself");
    } else if (!plan.Has(Region::Main)) {
      Refuse(
          "nothing in the images can be compared: a verification begins with MAIN flash, and they hold none "
          "of it");
    } else if (leftOut.Count() == leftOut.touched) {
      Refuse(fmt::format("nothing in the images can be compared: all their MAIN sectors are left out by {}",
                         leftOut.Settings()));
    } else if (plan.Has(Region::Scfg) && !plan.Has(Region::Ccfg)) {
      Refuse("the SCFG cannot be compared: a verification stops at the CCFG, and the images hold none");
    } else if (leftOut.Count() != 0) {
      Warn(fmt::format("left out by {}, and so not compared: {} of the images' {} MAIN sectors",
                       leftOut.Settings(), leftOut.Count(), leftOut.touched));
    }
  }

  // By itself the record is programmed first and checked afterwards, and can be programmed only once.
  void CheckUserRecord() {
    const ImageBlock* const record = plan.Find(Region::UserRecord);
    if (record == nullptr || settings.Get("CcfgVerifyUserRecordCrcToggle", "1") != "1") return;
    const CoveredRange covered = device.chip.userRecordCrc;
    const std::uint32_t begin = device.map.ccfg.base + covered.offset - record->address;
    std::uint32_t stored = 0;
    if (std::uint64_t{begin} + covered.length + sizeof stored > record->data.size()) return;
    std::memcpy(&stored, &record->data[begin + covered.length], sizeof stored);
    const std::uint32_t crc = Crc32(std::span(record->data).subspan(begin, covered.length));
    if (stored == crc) return;
    Refuse(
        fmt::format("the user record ends with the CRC 0x{:08x}, and that of its bytes is 0x{:08x} "
                    "(CcfgVerifyUserRecordCrcToggle=0 lets it pass)",
                    stored, crc));
  }

  void WarnOfErase() {
    if (erase.erasesConfiguration && !plan.Has(Region::Ccfg))
      Warn(
          "the chip will be erased and the images hold no CCFG: it will not start its application until one "
          "is programmed");
    if (erase.erasesConfiguration && device.map.scfg.size != 0 && !plan.Has(Region::Scfg))
      Warn("the chip will be erased and the images hold no SCFG");
    if (erase.keepsConfiguration && (plan.Has(Region::Ccfg) || plan.Has(Region::Scfg)))
      Warn("the CCFG and SCFG on the chip are kept: those of the images will not be programmed");
    if (!erase.erases && plan.Has(Region::Main))
      Warn("nothing is erased before programming: sectors that are not blank will fail to verify");
    if (const SectorsLeftOut leftOut = SectorsLeftOutOf(plan, device.map, settings);
        erase.erases && !erase.keepsMarkedSectors && leftOut.listed != 0)
      Warn(fmt::format(
          "left out by FlashPages, but not by the erase: {} of the images' {} MAIN sectors will be blank",
          leftOut.listed, leftOut.touched));
  }

  // The debug authorization that the chip will have: the setting that overwrites it, else the image's byte;
  // nothing when the load programs no CCFG.
  [[nodiscard]] std::optional<std::uint8_t> FutureDebugAuthorization() const {
    const ImageBlock* const ccfg = plan.Find(Region::Ccfg);
    if (ccfg == nullptr || erase.keepsConfiguration) return std::nullopt;
    if (settings.IsOn("CcfgOverwriteAuthorizationFieldsToggle")) {
      const std::string type = settings.Get("CcfgOverwriteAuthorizationFieldsTypeChoicelist");
      if (type == "Debug always allowed") return kDebugOpen;
      if (type == "Debug not allowed") return std::uint8_t{0};
      if (type == "Require debug authentication") return kDebugByPassword;
    }
    const std::uint32_t offset = device.map.ccfg.base + device.chip.authorizationTypeOffset - ccfg->address;
    if (offset < ccfg->data.size()) return ccfg->data[offset];
    return std::nullopt;
  }

  [[nodiscard]] bool HasPassword() const {
    const bool isHex = settings.Get("DebugPasswordFormatList") == "Hex";
    return !settings.Get(isHex ? "DebugPasswordHex" : "DebugPassword").empty();
  }

  void WarnOfDebugging() {
    const std::optional<std::uint8_t> authorization = FutureDebugAuthorization();
    if (!authorization || *authorization == kDebugOpen) return;
    if (*authorization != kDebugByPassword)
      Warn("the CCFG closes debugging for good: only a chip erase will open the chip again");
    else if (!HasPassword())
      Warn("the CCFG asks for a debug password and none is set (DebugPassword or DebugPasswordHex)");
  }

  // What no image gives goes out as 0xff and stays as the chip has it. A word that holds anything can only be
  // programmed again with what it holds, and OTP is programmed as a whole.
  void WarnOfOtp() {
    if (!plan.Has(Region::Otp)) return;
    const std::size_t given = plan.ImageBytes(Region::Otp);
    Warn("the images hold OTP data: what is programmed there can never be changed");
    if (given < device.map.otp.size)
      Warn(
          fmt::format("the images give {} of the OTP's {} bytes: the rest can be programmed later only by an "
                      "image that repeats these {}, and not in words that hold any of them",
                      given, device.map.otp.size, given));
  }

  const LoadPlan& plan;
  const DeviceDescription& device;
  const PropertyStore& settings;
  const LoadMode mode;
  const EraseChoice erase;
  Preflight found;
};

}  // namespace

Preflight Inspect(const LoadPlan& plan, const DeviceDescription& device, const PropertyStore& settings,
                  PreflightOptions options) {
  return Inspection(plan, device, settings).Run(options);
}

}  // namespace host
