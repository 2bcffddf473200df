#include "DebugAuthorizationFields.h"
#include "FlashDeviceTovik.h"

// Invalid settings do not stop the load: they are reported, and the CCFG stays as the image had it.
bool FlashDeviceTovik::OverwriteCcfgAuthorizationFields() {
  if (!GetProperty<bool>("CcfgOverwriteAuthorizationFieldsToggle")) return false;

  const std::string typeProperty = "CcfgOverwriteAuthorizationFieldsTypeChoicelist";
  const auto type = GetProperty<std::string>(typeProperty);
  if (type == "Debug always allowed") {
    WriteDebugAuthorization(load.ccfgImage, map.CcfgSize, DebugAuthorization::Allowed);
    return true;
  }
  if (type == "Debug not allowed") {
    WriteDebugAuthorization(load.ccfgImage, map.CcfgSize, DebugAuthorization::NotAllowed);
    return true;
  }
  if (type != "Require debug authentication") {
    utility.ReportError("Property '" + typeProperty +
                        "' in Flash Properties XML contains unexpected value.\nSkipping overwriting Debug "
                        "Authorization Configuration.");
    return false;
  }

  const auto passwordId = GetProperty<std::string>("CcfgOverwriteAuthorizationFieldsPasswordId");
  if (!IsHexOfAtMost(passwordId, kPasswordIdDigits)) {
    utility.ReportError(
        "Password ID property must be 64-bit hex-formatted value. Skipping overwriting Debug Authorization "
        "Configuration.");
    return false;
  }
  const auto passwordHash = GetProperty<std::string>("CcfgOverwriteAuthorizationFieldsPasswordHash");
  if (!IsHexOfAtMost(passwordHash, kPasswordHashDigits)) {
    utility.ReportError(
        "Password Hash property must be valid hex-formatted SHA256 hash.\nSkipping overwriting Debug "
        "Authorization Configuration.");
    return false;
  }
  WriteRequiredPassword(load.ccfgImage, map.CcfgSize, passwordId, passwordHash);
  return true;
}
