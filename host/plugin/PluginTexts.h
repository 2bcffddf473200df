#pragma once

#include <string_view>

namespace host {

// Texts of the plug-in from which the host concludes something. They are interface, word for word; a plug-in
// that words them otherwise is told apart by nothing else.

// Leads the information line that names the flash library and its version.
inline constexpr std::string_view kLibraryIs = "Flash loader: ";

// The information lines that end a verification.
inline constexpr std::string_view kVerificationSucceeded = "Image Verification Succeeded!";
inline constexpr std::string_view kMainVerificationFailed = "Main flash Verification Failed!";
inline constexpr std::string_view kCcfgVerificationFailed = "CCFG Verification Failed!";
inline constexpr std::string_view kScfgVerificationFailed = "SCFG Verification Failed!";

// The information line that ends a blank check of a blank chip.
inline constexpr std::string_view kFlashIsBlank = "Blank Check: Device flash is blank";

// Error texts that begin so end with the name of the chip's result.
inline constexpr std::string_view kEraseFailed = "Error occurred when erasing the chip - ";
inline constexpr std::string_view kMainProgrammingFailed = "Error occurred when programming flash - ";
inline constexpr std::string_view kMainVerifyingFailed = "Error when verifying flash - ";
inline constexpr std::string_view kCcfgProgrammingFailed = "Error when programming CCFG - ";
inline constexpr std::string_view kCcfgVerifyingFailed = "Error when verifying CCFG - ";
inline constexpr std::string_view kScfgProgrammingFailed = "Error when programming SCFG - ";
inline constexpr std::string_view kScfgVerifyingFailed = "Error when verifying SCFG - ";
inline constexpr std::string_view kOtpProgrammingFailed = "Error when programming OTP - ";
inline constexpr std::string_view kCcfgBlankCheckFailed = "Error performing blank check on CCFG sector- ";
inline constexpr std::string_view kMainBlankCheckFailed =
    "Error performing blank check on MAIN flash bank - ";
inline constexpr std::string_view kExitFailed = "Error when exiting the boot code - ";

// These come as error messages of a call that goes on.
inline constexpr std::string_view kPasswordIdFailed = "Requesting debug password ID failed. Error: ";
inline constexpr std::string_view kAuthenticationFailed = "Debug authentication failed. Error: ";

// A sector of a pipelined transfer was refused; the chip's result is not in the text.
inline constexpr std::string_view kPipelinedRefused = "Received response from SACI with unsuccesfull result";

}  // namespace host
