#include "host/plan/SettingsCheck.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/plan/SectorsLeftOut.h"

namespace host {

namespace {

constexpr std::string_view kAuthorizationToggle = "CcfgOverwriteAuthorizationFieldsToggle";
constexpr std::string_view kAuthorizationType = "CcfgOverwriteAuthorizationFieldsTypeChoicelist";
constexpr std::string_view kByPassword = "Require debug authentication";
constexpr std::string_view kPasswordId = "CcfgOverwriteAuthorizationFieldsPasswordId";
constexpr std::string_view kPasswordHash = "CcfgOverwriteAuthorizationFieldsPasswordHash";

// Without one of these the plug-in fails in the middle of a load.
constexpr std::string_view s_neededSettings[] = {"ImageVerificationSetting", "FlashPageToggle",
                                                 "FlashPagesFilledWith", kAuthorizationToggle};

// A setting that counts only with a certain value of another one, or only without.
enum class With { Counts, CountsNot };
struct Dependence {
  std::string_view name;
  std::string_view other;
  std::string_view value;
  With with;
};
constexpr Dependence s_dependences[] = {
    {"FlashPages", "FlashPageToggle", "1", With::Counts},
    {"FlashPagesFilledWithValue", "FlashPagesFilledWith", "1", With::Counts},
    {kAuthorizationType, kAuthorizationToggle, "1", With::Counts},
    {kPasswordId, kAuthorizationType, kByPassword, With::Counts},
    {kPasswordHash, kAuthorizationType, kByPassword, With::Counts},
    {"DebugPassword", "DebugPasswordFormatList", "Hex", With::CountsNot},
    {"DebugPasswordHex", "DebugPasswordFormatList", "Hex", With::Counts},
};

class SettingsCheck {
 public:
  SettingsCheck(const DeviceDescription& ofDevice, const PropertyStore& ofLoad, Preflight& result)
      : device(ofDevice), settings(ofLoad), found(result) {}

  void Run() {
    CheckTypes();
    CheckErase();
    if (settings.IsOn("FlashPageToggle"))
      Take("FlashPages",
           ReadSectorList(settings.Get("FlashPages"), device.map.main.size / device.map.sectorSize));
    if (settings.IsOn("FlashPagesFilledWith"))
      Take("FlashPagesFilledWithValue", ReadFillByte(settings.Get("FlashPagesFilledWithValue")));
    CheckAuthorization();
    WarnOfIgnored();
  }

 private:
  void Refuse(std::string_view name, std::string_view why) {
    found.refusals.push_back(fmt::format("{}: {}", name, why));
  }
  void Warn(std::string_view name, std::string_view why) {
    found.warnings.push_back(fmt::format("{}: {}", name, why));
  }

  void CheckTypes() {
    for (const std::string_view name : s_neededSettings)
      if (settings.Find(name) == nullptr)
        Refuse(name, fmt::format("{} has no such setting, and every load reads it", device.name));
    for (const FlashProperty& property : device.properties) {
      const std::string value = settings.Get(property.name);
      const auto& choices = property.choices;
      if (property.type == PropertyType::Bool && value != "0" && value != "1")
        Refuse(property.name, fmt::format("\"{}\" is neither 1 nor 0", value));
      if (property.type == PropertyType::Choice &&
          std::find(choices.begin(), choices.end(), value) == choices.end())
        Refuse(property.name, fmt::format("\"{}\" is none of \"{}\"", value, fmt::join(choices, "\", \"")));
    }
  }

  void CheckErase() {
    const EraseChoice erase = ChosenErase(settings);
    if (!IsKnownErase(erase))
      Refuse("FlashEraseSetting", fmt::format("\"{}\" is no erase that the plug-in knows", erase.text));
  }

  template <typename Reading>
  void Take(std::string_view name, const Reading& reading) {
    if (!reading.error.empty()) return Refuse(name, reading.error);
    if (!reading.oddity.empty()) Warn(name, reading.oddity);
  }

  // The plug-in reports what is wrong here and programs the authorization of the image instead.
  void CheckAuthorization() {
    if (!settings.IsOn(kAuthorizationToggle) || settings.Get(kAuthorizationType) != kByPassword) return;
    CheckHex(kPasswordId, 16);
    CheckHex(kPasswordHash, 64);
    const std::size_t digits = settings.Get(kPasswordHash).size();
    if (digits < 64)
      Warn(kPasswordHash,
           fmt::format("{} of 64 digits, led by zeros: perhaps no password has this hash", digits));
  }

  // Someone may have put the password itself there: the value is not repeated.
  void CheckHex(std::string_view name, std::size_t maxDigits) {
    const std::string value = settings.Get(name);
    if (value.size() > maxDigits || value.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
      Refuse(name, fmt::format("not a number of at most {} hexadecimal digits, without 0x", maxDigits));
  }

  void WarnOfIgnored() {
    for (const Dependence& each : s_dependences) {
      const FlashProperty* property = device.Find(each.name);
      const bool isSet = property != nullptr && settings.Get(each.name) != property->value;
      const bool counts = (settings.Get(each.other) == each.value) == (each.with == With::Counts);
      if (isSet && !counts)
        Warn(each.name, fmt::format("ignored, because {} is \"{}\"", each.other, settings.Get(each.other)));
    }
  }

  const DeviceDescription& device;
  const PropertyStore& settings;
  Preflight& found;
};

}  // namespace

void CheckSettings(const DeviceDescription& device, const PropertyStore& settings, Preflight& found) {
  SettingsCheck(device, settings, found).Run();
}

}  // namespace host
