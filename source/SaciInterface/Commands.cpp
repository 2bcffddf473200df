#include <algorithm>
#include <cstring>

#include "FlashUtil.h"
#include "SaciInterface.h"

// One function a command. Words count from the header, as in the record: words[0] is word 1.

namespace {

// Flags in the header's upper half.
constexpr std::uint16_t kHeaderBit16 = 0x0001;
constexpr std::uint16_t kHeaderBit17 = 0x0002;
constexpr std::uint16_t kHeaderBit31 = 0x8000;

constexpr std::uint16_t FlagIf(bool set, std::uint16_t flag) {
  return set ? flag : std::uint16_t{0};
}

constexpr std::size_t kMaxPasswordBytes = 64;

// Copies at most `room` bytes of `data` to words[firstWord] and on.
void PutBytes(SACI_PARAM_T& cmd, std::size_t firstWord, const std::vector<std::uint8_t>& data,
              std::size_t room) {
  const std::size_t count = std::min(room, data.size());
  if (count != 0) std::memcpy(&cmd.words[firstWord], data.data(), count);
}

}  // namespace

std::uint8_t SaciInterface::Nop() {
  return SendOneWordCmdAndReadResp(SACI_CMD_NOP, 0, nullptr);
}

std::uint8_t SaciInterface::ReqPasswordId(bool& hasId, std::uint64_t& passwordId) {
  SACI_RESP_T response{};
  const std::uint8_t result = SendOneWordCmdAndReadResp(SACI_CMD_REQ_PASSWORD_ID, 0, &response);
  hasId = response.dataWordCount == 2;
  if (hasId) passwordId = std::uint64_t{response.data[1]} << 32 | response.data[0];
  return result;
}

std::uint8_t SaciInterface::SubmitAuth(const std::string& password, bool isHex) {
  std::vector<std::uint8_t> bytes =
      isHex ? hexStringToBytes(password) : std::vector<std::uint8_t>(password.begin(), password.end());
  bytes.resize((bytes.size() + 3) / 4 * 4);
  SACI_PARAM_T cmd;
  ConstructCommonParam(&cmd.common, SACI_CMD_SUBMIT_AUTH, static_cast<std::uint16_t>(bytes.size() / 4));
  PutBytes(cmd, 0, bytes, kMaxPasswordBytes);
  return SendCmdAndReadResp(cmd, nullptr);
}

std::uint8_t SaciInterface::ExitSaciHalt() {
  return SendOneWordCmdAndReadResp(SACI_CMD_EXIT_SACI_HALT, 0, nullptr);
}

std::uint8_t SaciInterface::ExitSaciShutdown() {
  return SendOneWordCmdAndReadResp(SACI_CMD_EXIT_SACI_SHUTDOWN, 0, nullptr);
}

std::uint8_t SaciInterface::ExitSaciRun() {
  return SendOneWordCmdAndReadResp(SACI_CMD_EXIT_SACI_RUN, 0, nullptr);
}

std::uint8_t SaciInterface::EraseChip(bool retainMainSectors, bool retainCcfgScfg,
                                      std::vector<std::uint32_t>* retainedWords) {
  SACI_PARAM_T cmd;
  ConstructCommonParam(&cmd.common, retainCcfgScfg ? SACI_CMD_ERASE_CHIP_KEEP_CFG : SACI_CMD_ERASE_CHIP,
                       FlagIf(retainMainSectors, kHeaderBit16));
  cmd.words[0] = kSaciCommandKey;
  SACI_RESP_T response{};
  const std::uint8_t result = SendCmdAndReadResp(cmd, &response);
  if (retainMainSectors)
    retainedWords->assign(response.data.begin(), response.data.begin() + response.dataWordCount);
  return result;
}

std::uint8_t SaciInterface::ProgCcfgSector(const std::vector<std::uint8_t>& image, bool skipUserRecord) {
  return SendKeyedData(SACI_CMD_PROG_CCFG_SECTOR, FlagIf(skipUserRecord, kHeaderBit16), image, 2048);
}

std::uint8_t SaciInterface::ProgCcfgUserRecord(const std::vector<std::uint8_t>& record) {
  return SendKeyedData(SACI_CMD_PROG_CCFG_USER_RECORD, 0, record, 128);
}

std::uint8_t SaciInterface::ProgScfgSector(const std::vector<std::uint8_t>& image) {
  return SendKeyedData(SACI_CMD_PROG_SCFG_SECTOR, static_cast<std::uint16_t>(image.size()), image, 1024);
}

std::uint8_t SaciInterface::ProgOtpSector(const std::vector<std::uint8_t>& data) {
  return SendKeyedData(SACI_CMD_PROG_OTP_SECTOR, static_cast<std::uint16_t>(data.size()), data, 2048);
}

std::uint8_t SaciInterface::SendKeyedData(SACI_CMD_ID_T id, std::uint16_t cmdSpecific,
                                          const std::vector<std::uint8_t>& data, std::size_t room) {
  SACI_PARAM_T cmd;
  ConstructCommonParam(&cmd.common, id, cmdSpecific);
  cmd.words[0] = kSaciCommandKey;
  PutBytes(cmd, 1, data, room);
  return SendCmdAndReadResp(cmd, nullptr);
}

std::uint8_t SaciInterface::ProgMainSector(std::uint32_t address, const std::vector<std::uint8_t>& data) {
  SACI_PARAM_T cmd;
  ConstructCommonParam(&cmd.common, SACI_CMD_PROG_MAIN_SECTOR, static_cast<std::uint16_t>(data.size()));
  cmd.words[0] = kSaciCommandKey;
  cmd.words[1] = address;
  PutBytes(cmd, 2, data, 2048);
  return SendCmdAndReadResp(cmd, nullptr);
}

std::uint8_t SaciInterface::VerifyMainSectors(std::uint32_t address, std::uint32_t length, std::uint32_t crc,
                                              bool blankCheck) {
  SACI_PARAM_T cmd;
  ConstructCommonParam(&cmd.common, SACI_CMD_VERIFY_MAIN_SECTORS, FlagIf(blankCheck, kHeaderBit31));
  cmd.words[0] = address;
  cmd.words[1] = length;
  cmd.words[2] = crc;
  return SendCmdAndReadResp(cmd, nullptr);
}

std::uint8_t SaciInterface::VerifyCcfgSector(bool checkCrcs, bool skipUserRecordCrc, bool blankCheck,
                                             std::uint32_t crc1, std::uint32_t crc2, std::uint32_t crc3,
                                             std::uint32_t crc4) {
  SACI_PARAM_T cmd;
  const int flags = FlagIf(checkCrcs, kHeaderBit16) | FlagIf(skipUserRecordCrc, kHeaderBit17) |
                    FlagIf(blankCheck, kHeaderBit31);
  ConstructCommonParam(&cmd.common, SACI_CMD_VERIFY_CCFG_SECTOR, static_cast<std::uint16_t>(flags));
  cmd.words[0] = crc1;
  cmd.words[1] = crc2;
  cmd.words[2] = crc3;
  cmd.words[3] = crc4;
  return SendCmdAndReadResp(cmd, nullptr);
}

std::uint8_t SaciInterface::VerifyScfgSector(bool checkCrc, std::uint32_t crc) {
  SACI_PARAM_T cmd;
  ConstructCommonParam(&cmd.common, SACI_CMD_VERIFY_SCFG_SECTOR, FlagIf(checkCrc, kHeaderBit16));
  cmd.words[0] = crc;
  return SendCmdAndReadResp(cmd, nullptr);
}

std::uint8_t SaciInterface::ResetDevice(bool acknowledge) {
  SACI_PARAM_T cmd;
  ConstructCommonParam(&cmd.common, SACI_CMD_RESET_DEVICE, FlagIf(acknowledge, kHeaderBit16));
  if (acknowledge) return SendCmdAndReadResp(cmd, nullptr);
  SendCmd(cmd);
  return SACI_RESULT_SUCCESS;
}
