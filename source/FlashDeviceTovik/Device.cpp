#include "FlashDeviceTovik.h"

namespace {

constexpr char kBanner[] = "Serin_Corvel_FLASH_LIBRARY_VERSION 4.2.0.187";

}  // namespace

FlashDeviceTovik::FlashDeviceTovik(std::string text, std::string, std::string,
                                   IFlashProgrammerUtility2 hostUtility)
    : utility(hostUtility),
      // As large as they can be until Initialize knows the chip's sizes.
      saci(&utility, SaciInterface::kMaxMainSectorSize, SaciInterface::kMaxCcfgSize,
           SaciInterface::kMaxCcfgUserRecordSize),
      firstText(std::move(text)) {
  DebugLog("Flash loader: %s", kBanner);
  helper = std::make_shared<FlashUtil>(&utility);
}

void FlashDeviceTovik::Initialize() {
  if (IsVerboseEnabled()) DebugLog("Flashloader: Verbose output enabled.");
  ReadStaticFlashPropertiesInfo();
  saci.setCcfgSize(map.CcfgSize);
  saci.setMainSectorSize(map.SectorSize);
  saci.setCcfgUserRecordSize(map.CcfgUserRecordSize);
  saci.setScfgSize(map.ScfgSize);
}

void FlashDeviceTovik::ResetSettings(ProgramState state) {
  if (state == ProgramState::LoadStart) load = LoadState{};
  if (state != ProgramState::LoadEnd) return;
  if (load.verificationOnly)
    FinishVerification();
  else
    FinishProgramming();
}

// What did not verify is an information for the user, not a failure of the call.
void FlashDeviceTovik::FinishVerification() {
  if (!load.mainVerified) {
    utility.ReportInfo("Main flash Verification Failed!");
    return;
  }
  ProgramStoredCcfg();
  if (!load.ccfgProgrammed) {
    utility.ReportInfo("CCFG Verification Failed!");
    return;
  }
  if (map.ScfgSize != 0) {
    ProgramStoredScfg();
    if (!load.scfgProgrammed) {
      utility.ReportInfo("SCFG Verification Failed!");
      return;
    }
  }
  utility.ReportInfo("Image Verification Succeeded!");
  load.verboseMode = LoadState::kVerboseModeUnread;
}

void FlashDeviceTovik::FinishProgramming() {
  if (load.ccfgScfgErased && !load.ccfgStored)
    utility.ReportError(
        "Image must contain (correctly sized) CCFG section, when erase type is \"Chip erase\"");
  if (load.ccfgStored && !load.ccfgScfgRetained) {
    if (!load.ccfgScfgErased) DebugLog("The CCFG sector has not been erased. Writing to CCFG could fail.");
    ProgramStoredCcfg();
  }

  if (map.ScfgSize != 0) {
    if (load.ccfgScfgErased && !load.scfgStored)
      utility.ReportError(
          "Image must contain (correctly sized) SCFG section, when erase type is \"Chip erase\"");
    if (load.scfgStored && !load.ccfgScfgRetained) {
      if (!load.ccfgScfgErased) DebugLog("The SCFG sector has not been erased. Writing to SCFG could fail.");
      ProgramStoredScfg();
    }
  }

  if (map.OtpSize != 0 && !HasHsm() && load.otpStored) {
    if (!load.ccfgScfgErased) DebugLog("Chip has not been erased. Writing to OTP could fail.");
    ProgramStoredOtp();
  }

  if (load.ccfgMarkerByteZero)
    DebugLog("Debugging Interface is Locked!");
  else
    WriteRamDataThroughDebugPort();
  load.verboseMode = LoadState::kVerboseModeUnread;
}

void FlashDeviceTovik::WriteRamDataThroughDebugPort() {
  utility.SetCoreById("CS_DAP_0");
  if (InSaci() || !IsAhbApEnabled()) {
    EnterSaci();
    AuthenticateDebugging();
  }
  ProgramStoredRamData();
  if (IsAhbApEnabled()) {
    utility.SetCore("Cortex");
    utility.Connect(false);
  }
  DisconnectCore("SEC_AP");
}
