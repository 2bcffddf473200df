#include <stdexcept>

#include "FlashDeviceTovik.h"

namespace {

// Shown line by line when the target's configuration disables debugging. The text is interface: scripts read
// it.
constexpr const char* s_debuggingNotAllowedHelp[] = {
    "Debugging is not allowed. If this is not expected, check your CCFG.\n",
    "    If you are experiencing issues with loading your application, do the following (this will erase the "
    "chip):\n",
    "     - Quillon:\n",
    "       - End the current debug session (if any is active).\n",
    "       - View -> Target Configurations -> Right click on .qtcfg file for your project -> "
    "Launch Selected Configuration.\n",
    "       - Right click on the 'Debug Probe/Cortex_M0P' and select 'Show all cores'.\n",
    "       - Select the 'Debug Probe/CS_DAP0' item after expanding the 'Non Debuggable Devices' item.\n",
    "       - Scripts -> Serin -> ChipErase  to start Chip erase.\n",
    "       - You should now be able to load your application to the target.\n",
    "Debugging is not allowed. If this not expected, check your CCFG.\n",
    "    Flash loading is currently not supported if debugging is not allowed.\n",
};

}  // namespace

void FlashDeviceTovik::EnsureAuthentication(bool exitSaciAfter) {
  RequireDebugPort("The DAP core needs to be connected to ensure authentication.");
  // No pause and no time-out: the ROM gets past this within its own boot time.
  while (BeforeSaci()) {
  }
  if (InSaci()) {
    AuthenticateDebugging();
  } else if (!IsAhbApEnabled()) {
    EnterSaci();
    AuthenticateDebugging();
  }
  if (HasHsm()) return;
  if (exitSaciAfter && InSaci()) ExitSaci(true, kExitTimeout, kExitPollInterval);
}

void FlashDeviceTovik::AuthenticateDebugging() {
  RequireDebugPort("The DAP core needs to be connected to authenticate debugging.");
  if (!InSaci()) throw std::runtime_error("The target needs to be in SACI mode authenticate debugging.");
  ReadDeviceInfo();
  if (HasHsm()) {
    if (isBleMid()) ExitSaci(true, kExitTimeout, kExitPollInterval);
    return;
  }

  bool hasId = false;
  std::uint64_t passwordId = 0;
  const std::uint8_t result = saci.ReqPasswordId(hasId, passwordId);
  if (result == SACI_RESULT_NOT_ALLOWED) {
    PrintDebuggingNotAllowedHelp();
    return;
  }
  if (result != SACI_RESULT_SUCCESS) {
    utility.ReportError(std::string("Requesting debug password ID failed. Error: ") +
                        SaciInterface::ConvertResultCodeToString(result));
    return;
  }
  if (!hasId) return;
  SubmitPassword(passwordId);
  ExitSaci(true, kExitTimeout, kExitPollInterval);
}

void FlashDeviceTovik::SubmitPassword(std::uint64_t passwordId) {
  DebugLog("Debug authentication is required. Submitting authentication...");
  const std::string password = LookupPassword(passwordId);
  const std::uint8_t result = saci.SubmitAuth(password, LookupPasswordIsHex());
  if (result == SACI_RESULT_SUCCESS) {
    DebugLog("Debug authentication was successful.");
    return;
  }
  utility.ReportError(std::string("Debug authentication failed. Error: ") +
                      SaciInterface::ConvertResultCodeToString(result));
  DebugLog("    You can edit the password in the flash settings under \"Debug Password\"\n");
}

void FlashDeviceTovik::PrintDebuggingNotAllowedHelp() {
  for (const char* line : s_debuggingNotAllowedHelp) DebugLog("%s", line);
}

bool FlashDeviceTovik::LookupPasswordIsHex() const {
  return GetProperty<std::string>("DebugPasswordFormatList") == "Hex";
}

// One password serves whatever id the target asks for.
std::string FlashDeviceTovik::LookupPassword(std::uint64_t) const {
  return GetProperty<std::string>(LookupPasswordIsHex() ? "DebugPasswordHex" : "DebugPassword");
}
