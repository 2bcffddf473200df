#include <stdexcept>

#include "SaciInterface.h"

namespace {

struct ResultName {
  std::uint8_t result;
  const char* text;
};

constexpr ResultName s_resultNames[] = {
    {0x00, "Command executed successfully"},
    {0x80, "Invalid command ID"},
    {0x81, "Invalid address parameter"},
    {0x82, "Invalid size parameter"},
    {0x83, "Invalid key parameter"},
    {0x84, "Flash hardware FSM error"},
    {0x85, "Parameter data buffer overflow (host must slow down)"},
    {0x86, "Command is not allowed due to restrictions"},
    {0x87, "Calculated CRC32 does not match expected CRC32"},
    {0x88, "Invalid password parameter"},
    {0x89, "Blank check detected one or more flash bits that were zero"},
    {0x8A, "Invalid auth level parameter"},
    {0x8B, "Invalid auth configuration"},
    {0x8C, "Challenge response verification failed"},
    {0x8D, "Calculated key hash does not match provided the expected key hash"},
    {0x8E, "HSM failed to boot"},
    {0x8F, "HSM FW update failed due to invalid HDR contents"},
    {0x90, "HSM FW update failed due to invalid version number (anti-rollback)"},
    {0x91, "HSM FW update failed during either signature verification or decryption"},
    {0xFF, "Unspecified command failure"},
};

}  // namespace

const char* SaciInterface::ConvertResultCodeToString(SACI_CMD_RESULT_T result) {
  for (const ResultName& name : s_resultNames)
    if (name.result == result) return name.text;
  return "Unknown result code received from SACI";
}

void RequireSaciSuccess(std::uint8_t result, const char* prefix) {
  if (result == SACI_RESULT_SUCCESS) return;
  throw std::runtime_error(std::string(prefix) + SaciInterface::ConvertResultCodeToString(result));
}
