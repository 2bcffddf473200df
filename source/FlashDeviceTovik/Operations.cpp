#include <stdexcept>

#include "FlashDeviceTovik.h"

namespace {

std::string const s_cmdChipErase = "Erase";
std::string const s_cmdChipEraseRetainMain = "ChipEraseRetain";
std::string const s_cmdBlankCheck = "BlankCheck";
std::string const s_cmdReadDeviceInfo = "ReadDeviceInfo";
std::string const s_cmdProgramHsmImage = "ProgramHsmImage";
std::string const s_cmdReadHsmSysInfo = "ReadHsmSysInfo";
std::string const s_cmdReadHsmUpdateStatus = "ReadHsmUpdateStatus";

std::string const s_runeEnsureAuthentication = "EnsureAuthentication";
std::string const s_runeEnterSaci = "EnterSaci";
std::string const s_runeExitSaci = "ExitSaci";
std::string const s_runeSaciAppResetDevice = "SaciAppResetDevice";

std::vector<std::string> const s_runeSupportedRuneFunctions = {s_runeEnsureAuthentication, s_runeEnterSaci,
                                                               s_runeExitSaci, s_runeSaciAppResetDevice};

bool FlagParameter(std::vector<RuneValue> const& params) {
  ConfirmMinNumberParameters(params, 1);
  ConfirmParameterIsIntegral(params, 0);
  return params[0].ToLongLong() != 0;
}

}  // namespace

// "ReadDeviceInfo" is left out on purpose: it is accepted, not offered.
char const* FlashDeviceTovik::ListSupportedOperations() const {
  return "Erase, ChipEraseRetain, BlankCheck, ProgramHsmImage, ReadHsmSysInfo, ReadHsmUpdateStatus";
}

void FlashDeviceTovik::PerformOperation(std::string const& operation) {
  if (operation == s_cmdChipErase || operation == s_cmdChipEraseRetainMain) {
    EnterSaci();
    ChipErase(operation == s_cmdChipEraseRetainMain, false);
    FinishOperation();
  } else if (operation == s_cmdBlankCheck) {
    ReadDeviceInfo();
    EnterSaci();
    BlankCheck();
    FinishOperation();
  } else if (operation == s_cmdReadDeviceInfo) {
    ReadDeviceInfoOperation();
  } else if (operation == s_cmdProgramHsmImage) {
    RequireHsmSupport(operation);
    auto const path = GetProperty<std::string>("HsmImagePath");
    EnterSaci();
    ProgramHsmFw(path);
    FinishOperation();
  } else if (operation == s_cmdReadHsmSysInfo) {
    RequireHsmSupport(operation);
    EnterSaci();
    ReadHsmSysInfo();
    FinishOperation();
  } else if (operation == s_cmdReadHsmUpdateStatus) {
    RequireHsmSupport(operation);
    EnterSaci();
    ReadHsmUpdateStatus();
    FinishOperation();
  } else {
    throw std::runtime_error("Unsupported Operation Code: '" + operation + "'");
  }
}

void FlashDeviceTovik::FinishOperation() {
  saci.ResetDevice(true);
  utility.SetCoreById("CS_DAP_0");
  utility.Disconnect(true);
}

void FlashDeviceTovik::RequireHsmSupport(std::string const& operation) {
  ReadDeviceInfo();
  if (!isBleHighPg2OrNewer() && !isBleMid())
    throw std::runtime_error("This operation is only supported for Corvel devices revision E or higher: '" +
                             operation + "'");
}

// Leaves the connection as it was.
void FlashDeviceTovik::ReadDeviceInfoOperation() {
  utility.SetCore("Cortex");
  bool const wasConnected = utility.IsConnected();
  ReadDeviceInfo();
  if (wasConnected) return;
  utility.SetCore("Cortex");
  utility.Disconnect(true);
  utility.SetCoreById("SEC_AP");
  utility.Disconnect(true);
  utility.SetCoreById("CS_DAP_0");
  utility.Disconnect(true);
}

std::vector<std::string> FlashDeviceTovik::GetRuneFunctionNames() const {
  return s_runeSupportedRuneFunctions;
}

RuneValue FlashDeviceTovik::ExecuteRuneFunction(std::string const& name,
                                                std::vector<RuneValue> const& params) {
  if (name == s_runeEnsureAuthentication)
    EnsureAuthentication(FlagParameter(params));
  else if (name == s_runeEnterSaci)
    EnterSaci();
  else if (name == s_runeExitSaci)
    ExitSaci(true, kExitTimeout, kExitPollInterval);
  else if (name == s_runeSaciAppResetDevice)
    return SaciAppResetDevice(params);
  else
    throw std::runtime_error("ExecuteRuneFunction(): unknown function");
  return RuneValue(0);
}

RuneValue FlashDeviceTovik::SaciAppResetDevice(std::vector<RuneValue> const& params) {
  bool const acknowledge = FlagParameter(params);
  utility.SetCoreById("CS_DAP_0");
  if (!utility.IsConnected())
    throw std::runtime_error("The DAP core needs to be connected to send SACI app reset command.");
  if (!InSaci())
    throw std::runtime_error("The target needs to be in SACI mode to send SACI app reset command..");
  return RuneValue(saci.ResetDevice(acknowledge));
}
