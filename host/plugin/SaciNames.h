#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace host {

inline constexpr std::uint32_t kResetIntoSaci = 0x5C;  // to SECAP_RSTCTL

// The commands of docs/wire-format.md that a load is judged by.
namespace saci {
inline constexpr std::uint8_t kNoOperation = 1;
inline constexpr std::uint8_t kRequestPasswordId = 5;
inline constexpr std::uint8_t kSubmitPassword = 6;
inline constexpr std::uint8_t kLeaveHalted = 7;
inline constexpr std::uint8_t kLeaveShutDown = 8;
inline constexpr std::uint8_t kErase = 9;
inline constexpr std::uint8_t kProgramCcfg = 12;
inline constexpr std::uint8_t kProgramUserRecord = 13;
inline constexpr std::uint8_t kProgramSector = 14;
inline constexpr std::uint8_t kProgramPipelined = 15;
inline constexpr std::uint8_t kVerifyMain = 16;
inline constexpr std::uint8_t kVerifyCcfg = 17;
inline constexpr std::uint8_t kResetDevice = 20;
inline constexpr std::uint8_t kLeaveRunning = 21;
inline constexpr std::uint8_t kProgramOtp = 25;
inline constexpr std::uint8_t kProgramScfg = 26;
inline constexpr std::uint8_t kVerifyScfg = 27;
inline constexpr std::uint8_t kEraseKeepingConfiguration = 28;
inline constexpr std::uint8_t kUpdateHsm = 33;
inline constexpr std::uint8_t kReadHsmInformation = 34;
inline constexpr std::uint8_t kReadHsmStatus = 35;

inline constexpr std::uint8_t kCrcDiffers = 0x87;

// Bits of a command's argument, by their place in its header, of which the argument is the upper half.
inline constexpr unsigned kBit16 = 1U << 0;
inline constexpr unsigned kBit17 = 1U << 1;
inline constexpr unsigned kBit31 = 1U << 15;
}  // namespace saci

// "program the CCFG"; "command 99" for an id that is none.
[[nodiscard]] std::string SaciCommandName(std::uint8_t command);
// "CRC-32 differs"; "unknown result" for a code that the ROM does not have.
[[nodiscard]] std::string_view SaciResultName(std::uint8_t result);

// What a plug-in is at.
enum class Phase {
  Identify,
  Reset,
  Erase,
  ProgramMain,
  VerifyMain,
  Ccfg,
  Scfg,
  Otp,
  Ram,
  Authenticate,
  Hsm,
};
inline constexpr std::size_t kPhaseCount = 11;

// "program MAIN"
[[nodiscard]] std::string_view PhaseName(Phase phase);
// The phase that a command belongs to; `present` for one that is a part of any.
[[nodiscard]] Phase PhaseOf(std::uint8_t command, Phase present);

}  // namespace host
