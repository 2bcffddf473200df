#include <stdexcept>

#include "FlashDeviceTovik.h"

namespace {

// Boot status codes of the ROM.
constexpr std::uint8_t kBootstaSaci = 0x20;
constexpr std::uint8_t kBootstaFirstBootCode = 0x80;
constexpr std::uint8_t kBootstaDbgProbeLoop = 0x81;
constexpr std::uint8_t kBootstaDbgProbeLoopAlternative = 0xC1;

constexpr std::uint32_t kAhbApEnabled = 1U << 24;  // CFGAP_DEVICESTATUS

constexpr unsigned long long kResetIntoSaci = 0x5C;  // SECAP_RSTCTL

constexpr int kPinReset = 0;  // the host's reset kind

enum class LifecycleAction { ExitSaci, StayInSaci, Refuse };

LifecycleAction ActionFor(std::uint8_t lifecycle) {
  switch (lifecycle) {
    case 3:
    case 4:
    case 5: return LifecycleAction::ExitSaci;
    case 0:
    case 1:
    case 2:
    case 6: return LifecycleAction::StayInSaci;
    default: return LifecycleAction::Refuse;
  }
}

}  // namespace

std::uint32_t FlashDeviceTovik::ReadReg(std::uint32_t address) {
  return Convert(Debugger::Address(utility.ReadReg(Debugger::Address(address))));
}

std::uint32_t FlashDeviceTovik::ReadDeviceStatus() {
  return ReadReg(Convert(utility.LookupReg("CFGAP_DEVICESTATUS")));
}

bool FlashDeviceTovik::BeforeSaci() {
  return ReadBootsta() < kBootstaSaci;
}

bool FlashDeviceTovik::InSaci() {
  return ReadBootsta() == kBootstaSaci;
}

bool FlashDeviceTovik::InBootloader() {
  return ReadBootsta() >= kBootstaFirstBootCode;
}

bool FlashDeviceTovik::InDbgProbeLoop() {
  const std::uint8_t bootsta = ReadBootsta();
  return bootsta == kBootstaDbgProbeLoop || bootsta == kBootstaDbgProbeLoopAlternative;
}

bool FlashDeviceTovik::IsAhbApEnabled() {
  return (ReadDeviceStatus() & kAhbApEnabled) != 0;
}

void FlashDeviceTovik::ConnectDebugPort() {
  utility.SetCoreById("CS_DAP_0");
  if (!utility.IsConnected()) utility.Connect(false);
}

void FlashDeviceTovik::RequireDebugPort(const char* errorText) {
  utility.SetCoreById("CS_DAP_0");
  if (!utility.IsConnected()) throw std::runtime_error(errorText);
}

void FlashDeviceTovik::DisconnectCore(const char* id) {
  utility.SetCoreById(id);
  utility.Disconnect(true);
}

void FlashDeviceTovik::EnterSaci() {
  ConnectDebugPortAlone();
  saci.ResetInterfaceState();
  utility.WriteReg(utility.LookupReg("SECAP_RSTCTL"), kResetIntoSaci);
  utility.ReConnect();
  if (!InSaci()) throw std::runtime_error("Target did not enter SACI after pin reset");
  saci.Nop();
}

// A connection of the debug port is kept only when neither of the cores behind it is connected.
void FlashDeviceTovik::ConnectDebugPortAlone() {
  utility.SetCoreById("CS_DAP_0");
  const bool dapConnected = utility.IsConnected();
  utility.SetCore("Cortex");
  const bool cortexConnected = utility.IsConnected();
  utility.SetCoreById("SEC_AP");
  const bool secApConnected = utility.IsConnected();

  if (dapConnected && cortexConnected) {
    utility.SetCore("Cortex");
    utility.Disconnect(true);
  }
  if (dapConnected && secApConnected) DisconnectCore("SEC_AP");
  const bool alone = !cortexConnected && !secApConnected;
  if (dapConnected && !alone) DisconnectCore("CS_DAP_0");
  utility.SetCoreById("CS_DAP_0");
  if (!dapConnected || !alone) utility.Connect(false);
}

void FlashDeviceTovik::IssuePinResetAndEnterSaci() {
  DisconnectCore("CS_DAP_0");
  utility.ResetTarget(kPinReset);
  utility.Connect(false);
  saci.ResetInterfaceState();
  if (InSaci())
    saci.Nop();
  else
    EnterSaci();
}

void FlashDeviceTovik::ExitSaci(bool halt, std::uint32_t timeout, std::uint32_t pollInterval) {
  ReadDeviceInfo();
  ConnectDebugPort();

  switch (ActionFor(ReadLifecycle())) {
    case LifecycleAction::ExitSaci: break;
    case LifecycleAction::StayInSaci:
      DebugLog("Not exiting SACI. Life cycle state must be TESTFT, ENGRDEV or PRODDEV");
      return;
    case LifecycleAction::Refuse: throw std::runtime_error("The target is in an unexpected state");
  }
  if (!InSaci()) {
    utility.ReportError("You can't exit SACI mode, when not in SACI mode.");
    return;
  }

  std::uint8_t result = halt ? saci.ExitSaciHalt() : saci.ExitSaciRun();
  if (halt && result == SACI_RESULT_SUCCESS) WaitForBootCodeExit(timeout, pollInterval);
  if (halt && result == SACI_RESULT_NOT_ALLOWED) {
    utility.ReportError("Halting at entry of application is not allowed. Are you sure debugging is allowed?");
    utility.ReportInfo("Running the application, without halting at the entry of the application.");
    result = saci.ExitSaciRun();
  }
  RequireSaciSuccess(result, "Error when exiting the boot code - ");
}

// The remaining time decides at the end, not the state: arriving as the time runs out is a time-out.
void FlashDeviceTovik::WaitForBootCodeExit(std::uint32_t timeout, std::uint32_t pollInterval) {
  std::int64_t remaining = timeout;
  while (!InDbgProbeLoop() && remaining > 0) {
    if (HasHsm() && InBootloader()) break;
    remaining -= pollInterval;
    utility.Sleep(pollInterval);
  }
  if (remaining <= 0) throw std::runtime_error("Timeout when waiting for target to exit boot code.");
}
