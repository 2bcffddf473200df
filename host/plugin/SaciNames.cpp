#include "host/plugin/SaciNames.h"

#include <fmt/format.h>

namespace host {

namespace {

struct Named {
  std::uint8_t code;
  std::string_view name;
};

constexpr Named s_commands[] = {
    {saci::kNoOperation, "no operation"},
    {saci::kRequestPasswordId, "ask for the password id"},
    {saci::kSubmitPassword, "submit the password"},
    {saci::kLeaveHalted, "leave SACI halted"},
    {saci::kLeaveShutDown, "leave SACI and shut down"},
    {saci::kErase, "erase the chip"},
    {saci::kProgramCcfg, "program the CCFG"},
    {saci::kProgramUserRecord, "program the CCFG user record"},
    {saci::kProgramSector, "program one MAIN sector"},
    {saci::kProgramPipelined, "program MAIN"},
    {saci::kVerifyMain, "verify MAIN"},
    {saci::kVerifyCcfg, "verify the CCFG"},
    {saci::kResetDevice, "reset the device"},
    {saci::kLeaveRunning, "leave SACI and run"},
    {saci::kProgramOtp, "program OTP"},
    {saci::kProgramScfg, "program the SCFG"},
    {saci::kVerifyScfg, "verify the SCFG"},
    {saci::kEraseKeepingConfiguration, "erase the chip but CCFG and SCFG"},
    {saci::kUpdateHsm, "update the HSM firmware"},
    {saci::kReadHsmInformation, "read the HSM system information"},
    {saci::kReadHsmStatus, "read the HSM update status"},
};

constexpr Named s_results[] = {
    {0x00, "success"},
    {0x80, "no such command"},
    {0x81, "wrong address"},
    {0x82, "wrong size"},
    {0x83, "wrong key"},
    {0x84, "the flash hardware failed"},
    {0x85, "words came faster than they were programmed"},
    {0x86, "not allowed"},
    {saci::kCrcDiffers, "CRC-32 differs"},
    {0x88, "wrong password"},
    {0x89, "the blank check found a programmed bit"},
    {0x8A, "authentication: wrong level"},
    {0x8B, "authentication: wrong configuration"},
    {0x8C, "authentication: challenge failed"},
    {0x8D, "authentication: key hash differs"},
    {0x8E, "the HSM did not boot"},
    {0x8F, "HSM firmware: wrong header"},
    {0x90, "HSM firmware: version refused (anti-rollback)"},
    {0x91, "HSM firmware: signature or decryption failed"},
    {0xFF, "failed, no reason given"},
};

}  // namespace

std::string SaciCommandName(std::uint8_t command) {
  for (const Named& named : s_commands)
    if (named.code == command) return std::string(named.name);
  return fmt::format("command {}", command);
}

std::string_view SaciResultName(std::uint8_t result) {
  for (const Named& named : s_results)
    if (named.code == result) return named.name;
  return "unknown result";
}

std::string_view PhaseName(Phase phase) {
  switch (phase) {
    case Phase::Identify: return "identify";
    case Phase::Reset: return "reset";
    case Phase::Erase: return "erase";
    case Phase::ProgramMain: return "program MAIN";
    case Phase::VerifyMain: return "verify MAIN";
    case Phase::Ccfg: return "CCFG";
    case Phase::Scfg: return "SCFG";
    case Phase::Otp: return "OTP";
    case Phase::Ram: return "RAM";
    case Phase::Authenticate: return "authenticate";
    case Phase::Hsm: return "HSM";
  }
  return "?";
}

Phase PhaseOf(std::uint8_t command, Phase present) {
  switch (command) {
    case saci::kRequestPasswordId:
    case saci::kSubmitPassword:
    case saci::kLeaveHalted:
    case saci::kLeaveShutDown:
    case saci::kLeaveRunning: return Phase::Authenticate;
    case saci::kErase:
    case saci::kEraseKeepingConfiguration: return Phase::Erase;
    case saci::kProgramCcfg:
    case saci::kProgramUserRecord:
    case saci::kVerifyCcfg: return Phase::Ccfg;
    case saci::kProgramSector:
    case saci::kProgramPipelined: return Phase::ProgramMain;
    case saci::kVerifyMain: return Phase::VerifyMain;
    case saci::kResetDevice: return Phase::Reset;
    case saci::kProgramOtp: return Phase::Otp;
    case saci::kProgramScfg:
    case saci::kVerifyScfg: return Phase::Scfg;
    case saci::kUpdateHsm:
    case saci::kReadHsmInformation:
    case saci::kReadHsmStatus: return Phase::Hsm;
    default: return present;
  }
}

}  // namespace host
