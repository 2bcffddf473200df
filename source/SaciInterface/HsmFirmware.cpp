#include <cstring>
#include <span>
#include <stdexcept>

#include "SaciInterface.h"

namespace {

// SECAP_RXCTL: a response is ready although the image is not complete.
constexpr std::uint32_t kEarlyResponse = 0x8;

constexpr std::size_t kSysInfoDataWords = 9;
constexpr std::size_t kVersionDataWord = 7;

struct FirmwareResultName {
  std::uint8_t result;
  const char* text;
};

// Only these fail a firmware update; other results are let through.
constexpr FirmwareResultName s_firmwareResultNames[] = {
    {130, "Invalid HSM FW image size"},
    {132, "HSM FW update failed"},
    {142, "HSM FW has been updated but HSM failed to boot"},
    {143, "HSM FW image header is invalid"},
    {144, "Incorrect HSM FW version"},
    {145, "HSM FW image failed to be verified"},
    {255, "HSM Command Failed"},
};

constexpr const char* s_updateStatusNames[] = {
    "Regular boot w/o a new image.",          "Requested update was successful.",
    "ROM panic mode due to fault injection.", "Invalid image detected.",
    "The target image failed to verify.",     "Requested image update process failed.",
    "SCFG configuration is invalid.",         "HSM FW failed to boot.",
};

constexpr char kStarted[] = "Programming of HSM FW image started...";
constexpr char kCompleted[] = "Programming of the HSM FW image was completed successfully";

std::vector<std::uint32_t> AsWords(const std::vector<std::uint8_t>& image) {
  if (image.size() % 4 != 0)
    throw std::runtime_error("The size of HSM image to be programmed must be divisible by 4");
  std::vector<std::uint32_t> words(image.size() / 4);
  if (!words.empty()) std::memcpy(words.data(), image.data(), image.size());
  return words;
}

// Cuts the chain into its records. The first has a leading word before its length; all are rounded up to
// whole words. A chain that does not end with the image is refused whole: half an update is worse than none.
std::vector<std::span<const std::uint32_t>> CutRecords(std::span<const std::uint32_t> words) {
  std::vector<std::span<const std::uint32_t>> records;
  for (std::size_t position = 0; position < words.size() || records.empty();) {
    const std::size_t lengthWord = records.empty() ? 1 : position;
    const std::uint64_t end =
        lengthWord < words.size() ? lengthWord + 1 + (std::uint64_t{words[lengthWord]} + 3) / 4 : UINT64_MAX;
    if (end > words.size())
      throw std::runtime_error("The record at offset " + std::to_string(position * 4) +
                               " of the HSM image runs past the end of the image");
    records.push_back(words.subspan(position, end - position));
    position = end;
  }
  return records;
}

}  // namespace

std::uint8_t SaciInterface::ProgHsmFw(const std::vector<std::uint8_t>& image) {
  const std::vector<std::uint32_t> words = AsWords(image);
  StartHsmFwStream(words.size());
  WriteTxWords(words.begin(), words.end());
  WaitForRxDataReady(5000, kPollInterval);
  ParseHsmCommandResponse();
  utility->ReportInfo(kCompleted);
  return SACI_RESULT_SUCCESS;
}

std::uint8_t SaciInterface::ProgHsmFwBleMid(const std::vector<std::uint8_t>& image) {
  const std::vector<std::uint32_t> words = AsWords(image);
  const std::vector<std::span<const std::uint32_t>> records = CutRecords(words);
  StartHsmFwStream(words.size());
  for (std::span<const std::uint32_t> record : records) {
    WriteTxWords(record.begin(), record.end());
    WaitForSaciToClearCmdWorkingFlag(1000, kPollInterval);
    CheckForHsmFwError();
  }
  WaitForRxDataReady(5000, kPollInterval);
  ParseHsmCommandResponse();
  utility->ReportInfo(kCompleted);
  return SACI_RESULT_SUCCESS;
}

void SaciInterface::StartHsmFwStream(std::size_t imageWords) {
  utility->ReportInfo(kStarted);
  SACI_PARAM_T cmd;
  ConstructCommonParam(&cmd.common, SACI_CMD_PROG_HSM_FW, 0);
  cmd.words[0] = static_cast<std::uint32_t>(imageWords);
  SendCmd(cmd);
  WaitForSaciToClearCmdWorkingFlag(1000, kPollInterval);
}

void SaciInterface::CheckForHsmFwError() {
  if ((ReadRxFlags() & kEarlyResponse) != 0) ParseHsmCommandResponse();
}

void SaciInterface::ParseHsmCommandResponse() {
  SACI_RESP_T response{};
  ReadResponse(response);
  if (response.cmdId != SACI_CMD_PROG_HSM_FW)
    throw std::runtime_error("Received response from SACI with unexpected command id");
  for (const FirmwareResultName& name : s_firmwareResultNames)
    if (name.result == response.result) throw std::runtime_error(name.text);
  if (response.dataWordCount != 0)
    throw std::runtime_error("Received response from SACI with non-zero data word count");
}

std::uint8_t SaciInterface::ReadHsmSysInfo(std::string* versionText) {
  const SACI_RESP_T response = RequestHsmWords(SACI_CMD_READ_HSM_SYS_INFO);
  if (response.result == SACI_RESULT_HSM_BOOT_FAILED)
    throw std::runtime_error(
        "HSM failed to boot. Make sure to program a valid HSM image under the \"HSM Image\" section.");
  if (response.result != SACI_RESULT_SUCCESS)
    throw std::runtime_error(ConvertResultCodeToString(response.result));
  if (response.dataWordCount != kSysInfoDataWords)
    throw std::runtime_error("Received response from SACI with unexpected data word count");

  const std::uint32_t version = response.data[kVersionDataWord];
  const std::string text = "FW Version: " + std::to_string(version >> 16 & 0xFF) + "." +
                           std::to_string(version >> 8 & 0xFF) + "." + std::to_string(version & 0xFF);
  utility->ReportInfo("HSM Information: " + text);
  *versionText = text;
  return SACI_RESULT_SUCCESS;
}

std::uint8_t SaciInterface::ReadHsmUpdateStatus(std::string* statusText) {
  const SACI_RESP_T response = RequestHsmWords(SACI_CMD_READ_HSM_UPDATE_STATUS);
  if (response.result != SACI_RESULT_SUCCESS)
    throw std::runtime_error("Failed to read HSM FW Update Status from target");
  if (response.dataWordCount != 1)
    throw std::runtime_error("Received response from SACI with unexpected data word count");

  const std::uint32_t status = response.data[0];
  *statusText += status < std::size(s_updateStatusNames) ? s_updateStatusNames[status]
                                                         : "Unknown status! " + std::to_string(status);
  utility->ReportInfo("Update status: " + *statusText);
  return SACI_RESULT_SUCCESS;
}

SACI_RESP_T SaciInterface::RequestHsmWords(SACI_CMD_ID_T id) {
  SACI_PARAM_T cmd;
  ConstructCommonParam(&cmd.common, id, 0);
  SendCmd(cmd);
  WaitForRxDataReady(1000, kPollInterval);
  SACI_RESP_T response{};
  ReadResponse(response);
  if (response.cmdId != id)
    throw std::runtime_error("Received response from SACI with unexpected command id");
  return response;
}
