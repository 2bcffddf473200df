#include <stdexcept>

#include "FlashDeviceTovik.h"

namespace {

const std::string s_cmdChipErase = "Erase";
const std::string s_cmdChipEraseRetainMain = "ChipEraseRetain";
const std::string s_cmdBlankCheck = "BlankCheck";
const std::string s_cmdReadDeviceInfo = "ReadDeviceInfo";
const std::string s_cmdProgramHsmImage = "ProgramHsmImage";
const std::string s_cmdReadHsmSysInfo = "ReadHsmSysInfo";
const std::string s_cmdReadHsmUpdateStatus = "ReadHsmUpdateStatus";

const std::string s_runeEnsureAuthentication = "EnsureAuthentication";
const std::string s_runeEnterSaci = "EnterSaci";
const std::string s_runeExitSaci = "ExitSaci";
const std::string s_runeSaciAppResetDevice = "SaciAppResetDevice";

const std::vector<std::string> s_runeSupportedRuneFunctions = {s_runeEnsureAuthentication, s_runeEnterSaci,
                                                               s_runeExitSaci, s_runeSaciAppResetDevice};

bool FlagParameter(const std::vector<RuneValue>& params) {
  ConfirmMinNumberParameters(params, 1);
  ConfirmParameterIsIntegral(params, 0);
  return params[0].ToLongLong() != 0;
}

}  // namespace

// "ReadDeviceInfo" is left out on purpose: it is accepted, not offered.
const char* FlashDeviceTovik::ListSupportedOperations() const {
  return "Erase, ChipEraseRetain, BlankCheck, ProgramHsmImage, ReadHsmSysInfo, ReadHsmUpdateStatus";
}

void FlashDeviceTovik::PerformOperation(const std::string& operation) {
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
    const auto path = GetProperty<std::string>("HsmImagePath");
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
  DisconnectCore("CS_DAP_0");
}

void FlashDeviceTovik::RequireHsmSupport(const std::string& operation) {
  ReadDeviceInfo();
  if (!HasHsm())
    throw std::runtime_error("This operation is only supported for Corvel devices revision E or higher: '" +
                             operation + "'");
}

// Leaves the connection as it was.
void FlashDeviceTovik::ReadDeviceInfoOperation() {
  utility.SetCore("Cortex");
  const bool wasConnected = utility.IsConnected();
  ReadDeviceInfo();
  if (wasConnected) return;
  utility.SetCore("Cortex");
  utility.Disconnect(true);
  DisconnectCore("SEC_AP");
  DisconnectCore("CS_DAP_0");
}

std::vector<std::string> FlashDeviceTovik::GetRuneFunctionNames() const {
  return s_runeSupportedRuneFunctions;
}

RuneValue FlashDeviceTovik::ExecuteRuneFunction(const std::string& name,
                                                const std::vector<RuneValue>& params) {
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

RuneValue FlashDeviceTovik::SaciAppResetDevice(const std::vector<RuneValue>& params) {
  const bool acknowledge = FlagParameter(params);
  RequireDebugPort("The DAP core needs to be connected to send SACI app reset command.");
  if (!InSaci())
    throw std::runtime_error("The target needs to be in SACI mode to send SACI app reset command..");
  return RuneValue(saci.ResetDevice(acknowledge));
}
