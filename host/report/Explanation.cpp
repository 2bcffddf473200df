#include "host/report/Explanation.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>
#include <string>

namespace host {

namespace {

constexpr std::size_t kShortestPart = 4;  // of a text: less would fit nearly everything

constexpr Explanation s_explanations[] = {
    {0, "Command executed successfully", "The chip did what it was asked.", "Nothing."},
    {128, "Invalid command ID", "The chip's ROM does not know the command.",
     "Check that --device names the chip that is connected."},
    {129, "Invalid address parameter", "The address is not one where the command may work.",
     "Compare the image's addresses with the device's memory map; flash is written in whole sectors."},
    {130, "Invalid size parameter", "The length does not fit the command or the memory.",
     "Compare the region sizes in the device description with the chip."},
    {131, "Invalid key parameter", "A command that changes flash came without its key.",
     "Words were lost or changed on the way: check the probe's wiring and clock."},
    {132, "Flash hardware FSM error", "Flash could not be erased or programmed.",
     "Data that can be programmed once was there already, or the supply is too low. Erase the chip and "
     "retry."},
    {133, "Parameter data buffer overflow", "Words arrived faster than the chip could program them.",
     "Lower the probe's clock."},
    {134, "Command is not allowed due to restrictions",
     "The configuration on the chip, or its life-cycle state, forbids the command.",
     "Look at the permissions in the CCFG; 'tovik-flash erase' makes a chip accessible again where it may."},
    {135, "Calculated CRC32 does not match expected CRC32", "What the chip holds is not what the image says.",
     "After a load without erase: erase first. For CCFG or SCFG: let the load write the CRC words "
     "(CcfgOverwriteCrcsToggle, ScfgOverwriteCrcsToggle)."},
    {136, "Invalid password parameter", "The debug password is wrong.",
     "Set DebugPassword, or DebugPasswordHex with DebugPasswordFormatList=Hex. A wrong one costs nothing but "
     "time."},
    {137, "Blank check detected one or more flash bits that were zero", "Flash is not blank.",
     "'tovik-flash erase' erases it."},
    {138, "Invalid auth level parameter", "The chip does not know the level of access asked for.",
     "Check the device description."},
    {139, "Invalid auth configuration", "The debug authorization in the CCFG makes no sense to the chip.",
     "Correct the CCFG's debug authorization and load again."},
    {140, "Challenge response verification failed", "The answer to the chip's challenge was wrong.",
     "Use the key that belongs to this chip."},
    {141, "Calculated key hash does not match", "The key is not the one whose hash the chip holds.",
     "Use the key that belongs to this chip."},
    {142, "HSM failed to boot", "The security module has no firmware that runs.",
     "'tovik-flash hsm update FILE' installs one."},
    {143, "HSM FW update failed due to invalid HDR contents",
     "The file is no firmware image for this security module.",
     "Check the file; parts differ in the form of image that they take."},
    {144, "HSM FW update failed due to invalid version number",
     "The image is older than the installed firmware.",
     "The module never goes back; use an image that is as new or newer."},
    {145, "HSM FW update failed during either signature verification or decryption",
     "The firmware image is damaged.", "Fetch the image again."},
    {255, "Unspecified command failure", "The chip gave no reason.", "Reset the chip and try again."},

    {-1, "Timeout when waiting for SEC-AP TX data to be empty", "The chip does not take command words.",
     "It is not in its command mode, or has lost power: check the connection and reset it."},
    {-1, "Timeout when waiting for SEC-AP RX data to be ready", "The chip did not answer a command in time.",
     "It lost power or was reset meanwhile: check supply and reset line, then load again."},
    {-1, "Target did not enter SACI after pin reset", "The chip did not stop in its ROM's command mode.",
     "Check that the reset line is wired and that nothing holds the chip in reset."},
    {-1, "Received incorrect command ID from SACI", "The answer belongs to another command.",
     "Words got lost: check the wiring and lower the probe's clock."},
    {-1, "Received unexpected sequence number from SACI", "The answer belongs to another command.",
     "Words got lost: check the wiring and lower the probe's clock."},
    {-1, "Unknown property", "The device description lacks a setting that the plug-in reads.",
     "Complete the description; 'tovik-flash properties' lists what it has."},
    {-1, "permission settings that can lock the device",
     "The image's CCFG or SCFG would lock the chip against debugging or updates.",
     "Correct the settings it names. If locking is what you want: --set PermissionsSetting=0."},
    {-1, "Data will not be written to RAM", "The chip's memory cannot be reached: debugging is closed.",
     "Set the debug password, or load an image whose CCFG leaves debugging open."},
    {-1, "Image must contain (correctly sized) CCFG section",
     "The chip was erased and the image brought no CCFG, so the chip will not start its application.",
     "Link the CCFG into the image, or choose an erase setting that retains it."},
    {-1, "Image must contain (correctly sized) SCFG section",
     "The chip was erased and the image brought no SCFG.",
     "Link the SCFG into the image, or choose an erase setting that retains it."},
    {-1, "Debugging is not allowed", "The configuration on the chip closes debugging.",
     "Erase the chip, then load an image whose CCFG leaves debugging open."},
    {-1, "Verification error at address", "RAM did not read back what was written.",
     "The address may not be RAM of this chip: compare it with the device's memory map."},
    {-1, "Given page is out of range", "FlashPages names a sector that the chip does not have.",
     "Sectors count from 0; 'tovik-flash info' says how many there are."},
    {-1, "only supported for Corvel devices revision E or higher",
     "This chip has no security module to work with.", "Check that --device names the right chip."},
};

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

std::optional<int> ToCode(std::string_view text) {
  const bool isHex = text.starts_with("0x") || text.starts_with("0X");
  if (isHex) text.remove_prefix(2);
  int code = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), code, isHex ? 16 : 10);
  if (error != std::errc{} || stop != text.data() + text.size()) return std::nullopt;
  return code;
}

}  // namespace

std::span<const Explanation> Explanations() {
  return s_explanations;
}

std::vector<Explanation> Explain(std::string_view question) {
  std::vector<Explanation> fitting;
  const std::optional<int> code = ToCode(question);
  const std::string asked = Lower(question);
  for (const Explanation& explanation : s_explanations) {
    const std::string known = Lower(explanation.text);
    const bool isPart = asked.size() >= kShortestPart && known.find(asked) != std::string::npos;
    if (code ? explanation.code == *code : asked.find(known) != std::string::npos || isPart)
      fitting.push_back(explanation);
  }
  return fitting;
}

}  // namespace host
