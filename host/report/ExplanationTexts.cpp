#include "host/plugin/HostServices.h"
#include "host/plugin/PluginTexts.h"
#include "host/report/Explanation.h"

// What is known of every text that a user can meet, by where it comes from.

namespace host {

namespace {

// Said of more than one text.
constexpr std::string_view kWordsGotLost = "Words got lost or doubled between probe and chip.";
constexpr std::string_view kCheckWire =
    "Check wiring and supply, lower the probe's clock, and load again: the load begins with a reset.";
constexpr std::string_view kFaultOfPlugin = "The plug-in contradicts itself: this is a fault of the plug-in.";
constexpr std::string_view kReportWithTrace =
    "Report it, with the trace that --trace FILE records of the same run.";
constexpr std::string_view kCompleteDescription =
    "Correct the device description; docs/devices.md says what every fact looks like.";
constexpr std::string_view kWrongHsmFile =
    "The file is no firmware for this security module, or in the form that other parts take.";
constexpr std::string_view kTakeRightHsmFile =
    "Take the firmware that is made for this part; Corvel mid parts take a chain of records, the others one "
    "whole image.";
constexpr std::string_view kHsmTooOld = "The firmware is older than what is installed.";
constexpr std::string_view kHsmNeverBack =
    "The module never goes back: take a firmware that is as new or newer.";
constexpr std::string_view kHsmDamaged = "The firmware is damaged, or signed for another part.";
constexpr std::string_view kFetchHsm = "Fetch the firmware again.";
constexpr std::string_view kNoHsmFirmware = "The security module has no firmware that starts.";
constexpr std::string_view kInstallHsm = "'tovik-flash hsm update FILE' installs one.";
constexpr std::string_view kHsmGaveUp = "The security module did not complete the update.";
constexpr std::string_view kTryHsmAgain =
    "'tovik-flash hsm status' tells how far it got. Repeat the update with a steady supply.";
constexpr std::string_view kSectorList =
    "FlashPages is a list of sector numbers and rising ranges, as in 0,4-7.";
constexpr std::string_view kFillValue =
    "FlashPagesFilledWithValue is one byte, written with 0x and two hexadecimal digits, as in 0xFF.";
constexpr std::string_view kAddressOutside =
    "Compare the image's addresses with the device's memory map; 'load --dry-run' shows the plan.";
constexpr std::string_view kNotErased =
    "The load was told not to erase, and programming can only clear bits.";
constexpr std::string_view kEraseFirst =
    "Choose an erase setting that erases it, or make sure that it is blank or holds the same already.";
constexpr std::string_view kConnectFirst =
    "A script function was called before the chip was connected, or its connection was lost.";
constexpr std::string_view kEnterSaciFirst = "Call the script function EnterSaci first.";
constexpr std::string_view kNotInTable = "The description's tables do not list what the chip says it is.";
constexpr std::string_view kCheckDevice =
    "Check that --device names the chip that is connected; a new part needs rows in the tables.";

constexpr std::nullopt_t kNoCode = std::nullopt;

constexpr Explanation s_explanations[] = {
    // The chip's results, as the plug-in names them.
    {0, "Command executed successfully", "The chip did what it was asked.", "Nothing."},
    {128, "Invalid command ID", "The chip's ROM does not know the command.",
     "Check that --device names the chip that is connected: not every part has OTP, SCFG or HSM."},
    {129, "Invalid address parameter", "No sector of MAIN flash begins at the address.",
     "Compare SectorSize and the size of MAIN flash in the device description with what 'tovik-flash info' "
     "finds."},
    {130, "Invalid size parameter", "The length does not fit the command or the memory.",
     "Compare the region sizes in the device description with the chip."},
    {130, "Invalid size parameter", "The chip asks for a debug password, and none is set.",
     "Set DebugPassword, or DebugPasswordHex with DebugPasswordFormatList=Hex.", "password"},
    {131, "Invalid key parameter", "A command that changes flash came without its key.", kCheckWire},
    {132, "Flash hardware FSM error", "The flash hardware could not erase or program.",
     "Check the chip's supply, erase it, and load again. A part on which it comes back is worn."},
    {132, "Flash hardware FSM error",
     "OTP holds other data already. It can be programmed once, and nothing erases it.",
     "Leave OTP out of the image, or give it exactly what it holds. A chip that needs other OTP data has to "
     "be replaced.",
     "otp"},
    {133, "Parameter data buffer overflow", "Words came faster than the chip took them.",
     "Lower the probe's clock."},
    {133, "Parameter data buffer overflow",
     "The debug password is longer than the 64 bytes that there may be.",
     "Set the password that the chip was given: DebugPassword or DebugPasswordHex.", "password"},
    {134, "Command is not allowed due to restrictions",
     "The configuration on the chip, or its life-cycle state, forbids the command.",
     "Look at the permissions in the CCFG; 'tovik-flash erase' makes a chip accessible again where it may."},
    {134, "Command is not allowed due to restrictions",
     "The chip takes no password: its configuration leaves debugging open, or closes it for good.",
     "If debugging is closed: erase the chip, then load an image whose CCFG leaves it open.", "password"},
    {134, "Command is not allowed due to restrictions",
     "The chip's life-cycle state does not let its application be started by a debugger.",
     "Start it by a reset, without the debugger.", "exit"},
    {135, "Calculated CRC32 does not match expected CRC32", "What the chip holds is not what the image says.",
     "After a load without erase: erase first."},
    {135, "Calculated CRC32 does not match expected CRC32", "MAIN flash does not hold what the image says.",
     "After a verification: the chip holds something else. After a load: choose an erase setting that erases "
     "these sectors. A sector in which it comes back is worn.",
     "main"},
    {135, "Calculated CRC32 does not match expected CRC32",
     "The CCFG does not hold what the image says, or a CRC word in it is wrong.",
     "Erase it before it is programmed, and let the load write the CRC words: CcfgOverwriteCrcsToggle=1. If "
     "its user record has no CRC: CcfgVerifyUserRecordCrcToggle=0.",
     "ccfg"},
    {135, "Calculated CRC32 does not match expected CRC32",
     "The user record on the chip and the CRC word behind it do not agree.",
     "Erase the chip before, or correct the CRC word in the image; CcfgVerifyUserRecordCrcToggle=0 leaves it "
     "unchecked.",
     "user record"},
    {135, "Calculated CRC32 does not match expected CRC32",
     "The SCFG does not hold what the image says, or its CRC word is wrong.",
     "Erase it before it is programmed, and let the load write the CRC word: ScfgOverwriteCrcsToggle=1.",
     "scfg"},
    {136, "Invalid password parameter", "The debug password is wrong.",
     "Set DebugPassword, or DebugPasswordHex with DebugPasswordFormatList=Hex. A wrong one costs nothing but "
     "time."},
    {137, "Blank check detected one or more flash bits that were zero", "Flash is not blank.",
     "'tovik-flash erase' erases it."},
    {138, "Invalid auth level parameter", "The chip does not know the level of access asked for.",
     kReportWithTrace},
    {139, "Invalid auth configuration", "The debug authorization in the CCFG makes no sense to the chip.",
     "Erase the chip, correct the CCFG's debug authorization and load again."},
    {140, "Challenge response verification failed", "The answer to the chip's challenge was wrong.",
     "Use the key that belongs to this chip."},
    {141, "Calculated key hash does not match", "The key is not the one whose hash the chip holds.",
     "Use the key that belongs to this chip."},
    {142, "HSM failed to boot", kNoHsmFirmware, kInstallHsm},
    {143, "HSM FW update failed due to invalid HDR contents", kWrongHsmFile, kTakeRightHsmFile},
    {144, "HSM FW update failed due to invalid version number", kHsmTooOld, kHsmNeverBack},
    {145, "HSM FW update failed during either signature verification or decryption", kHsmDamaged, kFetchHsm},
    {255, "Unspecified command failure", "The chip gave no reason.", "Reset the chip and try again."},
    {kNoCode, "Unknown result code received from SACI", "The chip answered with a result that no page lists.",
     kCheckWire},

    // The channel to the chip.
    {kNoCode, "Timeout when waiting for SEC-AP TX data to be empty", "The chip does not take command words.",
     "It is not in its command mode, or has lost power: check the connection and reset it."},
    {kNoCode, "Timeout when waiting for SEC-AP RX data to be ready",
     "The chip did not answer a command in time.",
     "It lost power or was reset meanwhile: check supply and reset line, then load again."},
    {kNoCode, "Timeout when waiting for SACI to clear the CMD_WORKING flag",
     "The security module takes longer than a second for a part of its firmware.", kTryHsmAgain, "hsm"},
    {kNoCode, "Target did not enter SACI after pin reset", "The chip did not stop in its ROM's command mode.",
     "Check that the reset line is wired and that nothing holds the chip in reset."},
    {kNoCode, "Received incorrect command ID from SACI", kWordsGotLost, kCheckWire},
    {kNoCode, "Received response from SACI with unexpected command id", kWordsGotLost, kCheckWire},
    {kNoCode, "Received unexpected sequence number from SACI", kWordsGotLost, kCheckWire},
    {kNoCode, "Received unexpected sequence number from SACI during flash programming",
     "An acknowledgement of a sector got lost, or the block is too long: the numbers of its acknowledgements "
     "must not pass 256.",
     "A host cuts blocks shorter: docs/wire-format.md. With tovik-flash: check wiring and clock."},
    {kNoCode, "Received response from SACI with too many data words", kWordsGotLost, kCheckWire},
    {kNoCode, "Received response from SACI with non-zero data word count", kWordsGotLost, kCheckWire},
    {kNoCode, "Received response from SACI with unexpected data word count", kWordsGotLost, kCheckWire},
    {kNoCode, kPipelinedRefused,
     "The chip refused a sector of MAIN flash while it was streamed; the text does not say why.",
     "Usually the sector lies outside the chip's flash, or its permissions forbid programming: compare the "
     "device with the chip and look at the CCFG. --trace shows the result, in the third byte of the answer.",
     "main"},
    {kNoCode, "Only host systems with little-endianness are supported",
     "This machine stores numbers the other way.", "Run the plug-in on a little-endian machine."},

    // Boot state, debugging and its password.
    {kNoCode, "Not exiting SACI. Life cycle state must be",
     "A chip in this life-cycle state stays in its ROM.",
     "Its application can only be started by a reset, without the debugger.", "exit"},
    {kNoCode, "The target is in an unexpected state",
     "The chip reports a life-cycle state that does not exist.",
     "Check that --device names the chip that is connected, and the wiring.", "exit"},
    {kNoCode, "You can't exit SACI mode, when not in SACI mode", "The chip is not in its ROM's command mode.",
     kEnterSaciFirst, "exit"},
    {kNoCode, "Halting at entry of application is not allowed",
     "The configuration on the chip closes debugging, so the application was started without a stop.",
     "If that is not wanted: erase the chip, then load an image whose CCFG leaves debugging open.", "exit"},
    {kNoCode, "Timeout when waiting for target to exit boot code",
     "The chip was let go and did not reach its application in five seconds.",
     "Check its supply and clock, and that the CCFG names a sound application.", "exit"},
    {kNoCode, "Debugging is not allowed", "The configuration on the chip closes debugging.",
     "Erase the chip, then load an image whose CCFG leaves debugging open."},
    {kNoCode, "Debugging Interface is Locked!",
     "The image's CCFG closes debugging: RAM was not written, and the chip opens only after a chip erase.",
     "If that is not wanted: erase the chip, then load an image whose CCFG leaves debugging open."},
    {kNoCode, "Debugging is not allowed, or has not been authorized. Data will not be written to RAM",
     "The chip's memory cannot be reached: debugging is closed.",
     "Set the debug password, or load an image whose CCFG leaves debugging open.", "ram"},
    {kNoCode, "You can edit the password in the flash settings", "The debug password is wrong.",
     "Set DebugPassword, or DebugPasswordHex with DebugPasswordFormatList=Hex.", "password"},
    {kNoCode, "The DAP core needs to be connected", kConnectFirst, kEnterSaciFirst},
    {kNoCode, "The target needs to be in SACI mode", "The chip is not in its ROM's command mode.",
     kEnterSaciFirst},

    // Settings and facts of the device description.
    {kNoCode, "Unknown property", "The device description lacks a setting that the plug-in reads.",
     "Complete the description; 'tovik-flash properties' lists what it has."},
    {kNoCode, "Failed to read property", "The device description lacks a fact that the plug-in reads.",
     kCompleteDescription},
    {kNoCode, "in Flash Properties XML does not contain",
     "A fact of the device description has too few or too many parts.", kCompleteDescription},
    {kNoCode, "Offset and length defined in flash property",
     "A CRC's range in the device description runs past its region.", kCompleteDescription},
    {kNoCode, "Internal error in Flash Loader: Specified",
     "A region in the device description is larger than the chip's command can carry.", kCompleteDescription},
    {kNoCode, "The sector size of MAIN flash is not known", "SectorSize is 0, or was never read.",
     kCompleteDescription},
    {kNoCode, "stoul", "A fact that must be a number is none.", kCompleteDescription},
    {kNoCode, "vector::_M_range_check", "An entry of a list in the device description has too few parts.",
     kCompleteDescription},
    {kNoCode, "Invalid format of the Permissions property",
     "CcfgPermissions or ScfgPermissions in the device description cannot be read.", kCompleteDescription},
    {kNoCode, "Input string is empty", "A row of DeviceInfoRevisionTranslation has no revision number.",
     kCompleteDescription},
    {kNoCode, "Expecting HEX value", "A list of bytes holds more than two digits in one place.",
     "Write bytes as two hexadecimal digits."},
    {kNoCode, "Failed to convert HEX string", "A list of bytes holds something else.",
     "Write bytes as two hexadecimal digits."},
    {kNoCode, "in Flash Properties XML contains unexpected value",
     "A choice was set to none of its values; the debug authorization stays as the image has it.",
     "'tovik-flash properties' lists the values."},
    {kNoCode, "Password ID property must be",
     "CcfgOverwriteAuthorizationFieldsPasswordId is no number; the debug authorization stays as the image "
     "has it.",
     "Give up to 16 hexadecimal digits, without 0x."},
    {kNoCode, "Password Hash property must be",
     "CcfgOverwriteAuthorizationFieldsPasswordHash is no hash; the debug authorization stays as the image "
     "has "
     "it.",
     "Give the SHA-256 of the password's words as up to 64 hexadecimal digits, without 0x."},
    {kNoCode, "Given page is out of range", "FlashPages names a sector that the chip does not have.",
     "Sectors count from 0; 'tovik-flash info' says how many there are."},
    {kNoCode, "Invalid option was given", "FlashPages or FlashPagesFilledWithValue cannot be read.",
     "FlashPages is a list of sector numbers and rising ranges, as in 0,4-7; FlashPagesFilledWithValue one "
     "byte, as in 0xFF."},
    {kNoCode, "Contains invalid characters!", "FlashPagesFilledWithValue cannot be read.", kFillValue},
    {kNoCode, "Value must fit in one byte!", "FlashPagesFilledWithValue is more, or not two digits.",
     kFillValue},
    {kNoCode, "Invalid range was given", "A range in FlashPages runs backwards or has an open end.",
     kSectorList},
    {kNoCode, "Invalid sector range", "A range of sectors runs backwards, or past the end of all addresses.",
     kSectorList},
    {kNoCode, "permission settings that can lock the device",
     "The image's CCFG or SCFG would lock the chip against debugging or updates.",
     "Correct the settings it names. If locking is what you want: --set PermissionsSetting=0."},
    {kNoCode, "Unknown erase option", "FlashEraseSetting is none of its choices, so nothing was erased.",
     "'tovik-flash properties' lists the choices."},

    // The chip's identity.
    {kNoCode, "Device revision cannot be determined", kNotInTable, kCheckDevice},
    {kNoCode, "Assuming latest known revision", kNotInTable,
     "Nothing, if the newest known revision will do; else a row in DeviceInfoRevisionTranslation."},
    {kNoCode, "The FLASH size of the target could not be determined", kNotInTable, kCheckDevice},
    {kNoCode, "The SRAM size of the target could not be determined", kNotInTable, kCheckDevice},
    {kNoCode, "Flash size is unknown", kNotInTable, kCheckDevice},

    // Erasing and programming.
    {kNoCode, "No sectors were retained during Chip Erase",
     "Sectors were to be kept, but the CCFG on the chip is not valid: all of MAIN flash was erased.",
     "Load an image with a valid CCFG; its retain field counts from the next load on.", "erase"},
    {kNoCode, "Unexpected size of 'ccfg.flashProt.chipEraseRetain'",
     "The chip reports the kept sectors in a form that the plug-in does not know.",
     "Check that --device names the chip that is connected.", "erase"},
    {kNoCode, "Blank Check: Device CCFG sector is programmed", "The CCFG is not blank.",
     "'tovik-flash erase' erases it."},
    {kNoCode, "Blank Check: Device MAIN flash is programmed", "MAIN flash is not blank.",
     "'tovik-flash erase' erases it."},
    {kNoCode, "CCFG sector has not been erased", kNotErased, kEraseFirst, "ccfg"},
    {kNoCode, "SCFG sector has not been erased", kNotErased, kEraseFirst, "scfg"},
    {kNoCode, "Chip has not been erased. Writing to OTP could fail",
     "OTP is written by a load that erases nothing: the chip may have been loaded before.",
     "OTP can be programmed once; make sure that this chip's is empty.", "otp"},
    {kNoCode, "Image must contain (correctly sized) CCFG section",
     "The chip was erased and the image brought no CCFG, so the chip will not start its application.",
     "Link the CCFG into the image, or choose an erase setting that retains it.", "ccfg"},
    {kNoCode, "Image must contain (correctly sized) SCFG section",
     "The chip was erased and the image brought no SCFG.",
     "Link the SCFG into the image, or choose an erase setting that retains it.", "scfg"},
    {kNoCode, kMainVerificationFailed,
     "No block of MAIN flash was compared, so the verification stopped there.",
     "Verify with an image that has data in MAIN flash, and see that FlashPages leaves some of it.", "main"},
    {kNoCode, kCcfgVerificationFailed, "The CCFG could not be compared.", kReportWithTrace, "ccfg"},
    {kNoCode, kScfgVerificationFailed, "The SCFG could not be compared.", kReportWithTrace, "scfg"},
    {kNoCode, "Verification error at address", "RAM did not read back what was written.",
     "The address may not be RAM of this chip: compare it with the device's memory map.", "ram"},
    {kNoCode, "lies below its region", "A piece of the image begins before the region that it reaches into.",
     kAddressOutside},
    {kNoCode, "of a block that lies only partly in flash cannot be programmed",
     "The image runs over the end of MAIN flash.", kAddressOutside},
    {kNoCode, "The block does not fit in 32-bit addresses", "The image runs past the last address.",
     kAddressOutside},
    {kNoCode, "The chunk size of flash data cannot be zero", kFaultOfPlugin, kReportWithTrace},
    {kNoCode, "The size of flash data to be programmed must be divisible by", kFaultOfPlugin,
     kReportWithTrace},
    {kNoCode, "Size of SACI command cannot be zero", kFaultOfPlugin, kReportWithTrace},
    {kNoCode, "Pointer is NULL", kFaultOfPlugin, kReportWithTrace},
    {kNoCode, "ConvertByteVectorToString() does not support base", kFaultOfPlugin, kReportWithTrace},

    // The security module.
    {kNoCode, "only supported for Corvel devices revision E or higher",
     "This chip has no security module to work with.", "Check that --device names the right chip.", "hsm"},
    {kNoCode, "Failed to read HSM FW Update Status", "The chip did not answer with the update's status.",
     "Reset the chip and try again.", "hsm"},
    {kNoCode, "Failed to read", "The file cannot be read.",
     "Check HsmImagePath: that the file is there, and that you may read it.", "hsm"},
    {kNoCode, "Error, empty file name!", "No firmware file is named.",
     "Set HsmImagePath, or 'hsm update FILE'.", "hsm"},
    {kNoCode, "The size of HSM image to be programmed must be divisible by 4", kWrongHsmFile,
     kTakeRightHsmFile, "hsm"},
    {kNoCode, "of the HSM image runs past the end of the image", kWrongHsmFile, kTakeRightHsmFile, "hsm"},
    {kNoCode, "Invalid HSM FW image size", kWrongHsmFile, kTakeRightHsmFile, "hsm"},
    {kNoCode, "HSM FW update failed", kHsmGaveUp, kTryHsmAgain, "hsm"},
    {kNoCode, "HSM FW has been updated but HSM failed to boot",
     "The firmware was installed and does not start.", "Install another one: 'tovik-flash hsm update FILE'.",
     "hsm"},
    {kNoCode, "HSM FW image header is invalid", kWrongHsmFile, kTakeRightHsmFile, "hsm"},
    {kNoCode, "Incorrect HSM FW version", kHsmTooOld, kHsmNeverBack, "hsm"},
    {kNoCode, "HSM FW image failed to be verified", kHsmDamaged, kFetchHsm, "hsm"},
    {kNoCode, "HSM Command Failed", kHsmGaveUp, kTryHsmAgain, "hsm"},
    {kNoCode, "ROM panic mode due to fault injection",
     "The security module has seen what it takes for an attack, such as a drop of the supply.",
     "Check the supply, then repeat the update.", "hsm"},
    {kNoCode, "Invalid image detected", kWrongHsmFile, kTakeRightHsmFile, "hsm"},
    {kNoCode, "The target image failed to verify", kHsmDamaged, kFetchHsm, "hsm"},
    {kNoCode, "Requested image update process failed", kHsmGaveUp, kTryHsmAgain, "hsm"},
    {kNoCode, "SCFG configuration is invalid", "The security module cannot work with the SCFG on the chip.",
     "Load an image with a valid SCFG, then repeat the update.", "hsm"},
    {kNoCode, "HSM FW failed to boot", kNoHsmFirmware, kInstallHsm, "hsm"},
    {kNoCode, "Unknown status!", "The security module reports a status that no page lists.",
     "Check that --device names the chip that is connected.", "hsm"},

    // Calls that a host or its user got wrong.
    {kNoCode, "Unsupported Operation Code", "The plug-in has no operation of this name.",
     "'tovik-flash operation --help' says how to list them."},
    {kNoCode, "ExecuteRuneFunction(): unknown function", "The plug-in has no script function of this name.",
     "'tovik-flash script --help' says how to list them."},
    {kNoCode, "GetRuneFunctionName(): index is out of range",
     "The host asked for a function that is not there.",
     "A fault of the host: it asks for more names than it was told of."},
    {kNoCode, "Expected at least", "A script function got too few arguments.",
     "'tovik-flash script --help' says what they are."},
    {kNoCode, "Expected an integral value for parameter",
     "A script function got a text where it needs a number.",
     "'tovik-flash script --help' says what they are."},
    {kNoCode, "Unsupported target data type", "The host hands over flash data in units of two bytes.",
     "A fault of the host: flash data of these chips are bytes."},
    {kNoCode, "Assertion `",
     "A promise between host and plug-in was broken, and the plug-in stopped the process.",
     "A fault of the host: docs/security.md says which promises stop the process."},

    // The host and its probe.
    {kNoCode, kCancelledText, "The user stopped it.",
     "The chip holds what had reached it. Load again: a load begins with a reset and erases."},
    {kNoCode, "host call failed on request", "--fault asked for this failure.", "Nothing."},
    {kNoCode, "is not connected", "The plug-in used a debug core without connecting it.",
     "A fault of the plug-in, or a connection that was lost. --trace FILE shows how it came to it."},
    {kNoCode, "there is no core", "The plug-in chose a debug core that the target lacks.", kReportWithTrace},
    {kNoCode, "there is no register", "The plug-in looked up a register that the target lacks.",
     kReportWithTrace},
    {kNoCode, "is wider than 32 bits", "The plug-in used an address or a value that the target cannot have.",
     kReportWithTrace},
    {kNoCode, "SEC_AP has 32-bit words at address 0", "The plug-in misused the security access port.",
     kReportWithTrace},
    {kNoCode, "is not offered", "The plug-in asked for an access or a reset that this host does not have.",
     kReportWithTrace},
    {kNoCode, "this host offers no function", "The plug-in called a function that the contract reserves.",
     kReportWithTrace},
    {kNoCode, "the host is out of memory", "This machine has no memory left.",
     "Close something and try again."},
    {kNoCode, "Not enough memory to tell what failed", "This machine has no memory left.",
     "Close something and try again."},
    {kNoCode, "the plug-in reported success but made no device", kFaultOfPlugin, kReportWithTrace},
    {kNoCode, "the plug-in says that the device has no flash", "The plug-in does not serve this device.",
     "Check --plugin and --device."},
    {kNoCode, "does not export", "The file is a library, but no flash-loader plug-in.", "Check --plugin."},
    {kNoCode, "its debug port is closed", "The configuration on the chip closes debugging.",
     "Set the debug password, or erase the chip and load an image whose CCFG leaves debugging open."},
    {kNoCode, "The AHB access port is not enabled",
     "The chip's memory cannot be reached: debugging is closed.",
     "Set the debug password, or load an image whose CCFG leaves debugging open.", "ram"},
    {kNoCode, "Bus error", "The chip has no memory at the address.", kAddressOutside, "ram"},
    {kNoCode, "No register at address", "The plug-in used a register that the target lacks.",
     kReportWithTrace},
    {kNoCode, "The chip does not answer: it has no power", "The chip lost its supply.",
     "Check the supply, then load again."},
};

}  // namespace

std::span<const Explanation> Explanations() {
  return s_explanations;
}

}  // namespace host
