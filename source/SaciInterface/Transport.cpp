#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "SaciInterface.h"

namespace {

// SECAP_TXCTL
constexpr std::uint32_t kTxDataFull = 0x1;
constexpr std::uint32_t kTxCmdStart = 0x2;
// SECAP_RXCTL
constexpr std::uint32_t kRxDataReady = 0x1;
constexpr std::uint32_t kCmdWorking = 0x4;

void RequireFits(std::uint32_t size, std::uint32_t limit, const char* what) {
  if (size > limit)
    throw std::runtime_error(std::string("Internal error in Flash Loader: Specified ") + what +
                             " is too big.");
}

void RequireLittleEndianHost() {
  const std::uint32_t word = 0x0102'0304;
  std::uint8_t firstByte = 0;
  std::memcpy(&firstByte, &word, 1);
  if (firstByte != 4) throw std::runtime_error("Only host systems with little-endianness are supported.");
}

}  // namespace

SaciInterface::SaciInterface(IFlashProgrammerUtility2* hostUtility, std::uint32_t mainSectorBytes,
                             std::uint32_t ccfgBytes, std::uint32_t ccfgUserRecordBytes)
    : utility(hostUtility) {
  setMainSectorSize(mainSectorBytes);
  setCcfgSize(ccfgBytes);
  setCcfgUserRecordSize(ccfgUserRecordBytes);
  utility->SetCoreById("CS_DAP_0");
  txCtlReg = utility->LookupReg("SECAP_TXCTL");
  rxCtlReg = utility->LookupReg("SECAP_RXCTL");
  deviceStatusReg = utility->LookupReg("CFGAP_DEVICESTATUS");
  RequireLittleEndianHost();
}

void SaciInterface::setMainSectorSize(std::uint32_t size) {
  RequireFits(size, kMaxMainSectorSize, "main flash sector size");
  mainSectorSize = size;
}

void SaciInterface::setCcfgSize(std::uint32_t size) {
  RequireFits(size, kMaxCcfgSize, "CCFG size");
  ccfgSize = size;
}

void SaciInterface::setScfgSize(std::uint32_t size) {
  RequireFits(size, kMaxScfgSize, "SCFG size");
  scfgSize = size;
}

void SaciInterface::setCcfgUserRecordSize(std::uint32_t size) {
  RequireFits(size, kMaxCcfgUserRecordSize, "CCFG user record size");
  ccfgUserRecordSize = size;
}

void SaciInterface::WriteTxFlags(std::uint32_t value) {
  utility->WriteReg(txCtlReg, value);
}

std::uint32_t SaciInterface::ReadTxFlags() {
  return static_cast<std::uint32_t>(utility->ReadReg(txCtlReg));
}

std::uint32_t SaciInterface::ReadRxFlags() {
  return static_cast<std::uint32_t>(utility->ReadReg(rxCtlReg));
}

namespace {

// Reads at least once, and once more after the last sleep. The remaining time is unsigned but tested as
// signed: a poll interval that does not divide the time-out ends the wait below zero.
template <typename Condition>
void WaitUntil(IFlashProgrammerUtility2& utility, std::uint32_t timeout, std::uint32_t pollInterval,
               const char* timeoutText, Condition holds) {
  std::uint32_t remaining = timeout;
  bool reached = holds();
  while (!reached && static_cast<std::int32_t>(remaining) > 0) {
    remaining -= pollInterval;
    utility.Sleep(pollInterval);
    reached = holds();
  }
  if (!reached) throw std::runtime_error(timeoutText);
}

}  // namespace

void SaciInterface::WaitForTxDataEmpty(std::uint32_t timeout, std::uint32_t pollInterval) {
  WaitUntil(*utility, timeout, pollInterval, "Timeout when waiting for SEC-AP TX data to be empty.",
            [this] { return (ReadTxFlags() & kTxDataFull) == 0; });
}

void SaciInterface::WaitForRxDataReady(std::uint32_t timeout, std::uint32_t pollInterval) {
  WaitUntil(*utility, timeout, pollInterval, "Timeout when waiting for SEC-AP RX data to be ready.",
            [this] { return (ReadRxFlags() & kRxDataReady) != 0; });
}

void SaciInterface::WaitForSaciToClearCmdWorkingFlag(std::uint32_t timeout, std::uint32_t pollInterval) {
  WaitUntil(*utility, timeout, pollInterval, "Timeout when waiting for SACI to clear the CMD_WORKING flag.",
            [this] { return (ReadRxFlags() & kCmdWorking) == 0; });
}

// The configuration and OTP commands always have their full size, whatever data they carry.
std::uint32_t SaciInterface::GetCmdWordCount(const SACI_PARAM_T& cmd) const {
  const std::uint32_t param = cmd.common.cmdSpecific;
  switch (cmd.common.cmdId) {
    case SACI_CMD_SUBMIT_AUTH: return std::min(param + 1, 17U);
    case SACI_CMD_ERASE_CHIP:
    case SACI_CMD_VERIFY_SCFG_SECTOR:
    case SACI_CMD_ERASE_CHIP_KEEP_CFG:
    case SACI_CMD_PROG_HSM_FW: return 2;
    case SACI_CMD_PROG_CCFG_SECTOR: return 514 - (kMaxCcfgSize - ccfgSize) / 4;
    case SACI_CMD_PROG_CCFG_USER_RECORD: return 34 - (kMaxCcfgUserRecordSize - ccfgUserRecordSize) / 4;
    case SACI_CMD_PROG_MAIN_SECTOR:
      return std::min((param + 15) / 4, 515 - (kMaxMainSectorSize - mainSectorSize) / 4);
    case SACI_CMD_PROG_MAIN_PIPELINED: return 3;
    case SACI_CMD_VERIFY_MAIN_SECTORS: return 4;
    case SACI_CMD_VERIFY_CCFG_SECTOR:
    case 18: return 5;
    case 19:  // 18, 19 and 22 have a size on the wire but no sender here
    case 22: return 9;
    case SACI_CMD_PROG_OTP_SECTOR: return 514;
    case SACI_CMD_PROG_SCFG_SECTOR: return 258 - (kMaxScfgSize - scfgSize) / 4;
    default: return 1;
  }
}

void SaciInterface::ConstructCommonParam(SACI_PARAM_COMMON_T* common, SACI_CMD_ID_T id,
                                         std::uint16_t cmdSpecific) {
  common->cmdId = id;
  common->respSeqNumber = GenRespSeqNumber();
  common->cmdSpecific = cmdSpecific;
}

void SaciInterface::WriteCmdWords(const std::vector<std::uint32_t>& words) {
  if (words.empty())
    throw std::runtime_error("Internal error in Flash Loader: Size of SACI command cannot be zero.");
  WaitForTxDataEmpty(1000, kPollInterval);
  WriteTxFlags(kTxCmdStart);
  WriteTxWords(words.begin(), words.begin() + 1);
  if (words.size() == 1) return;
  WriteTxFlags(0);
  WriteTxWords(words.begin() + 1, words.end());
}

void SaciInterface::SendCmd(const SACI_PARAM_T& cmd) {
  std::vector<std::uint32_t> words(GetCmdWordCount(cmd));
  std::memcpy(words.data(), &cmd, words.size() * sizeof(std::uint32_t));
  WriteCmdWords(words);
}

void SaciInterface::ReadResponse(SACI_RESP_T& response) {
  std::uint32_t header = 0;
  ReadRxWords(&header, &header + 1);
  std::memcpy(&response, &header, sizeof header);
  if (response.dataWordCount > response.data.size())
    throw std::runtime_error("Received response from SACI with too many data words");
  ReadRxWords(response.data.data(), response.data.data() + response.dataWordCount);
}

std::uint8_t SaciInterface::SendCmdAndReadResp(const SACI_PARAM_T& cmd, SACI_RESP_T* response) {
  SACI_RESP_T dropped{};
  SACI_RESP_T& record = response != nullptr ? *response : dropped;
  SendCmd(cmd);
  WaitForRxDataReady(5000, kPollInterval);
  ReadResponse(record);
  if (record.cmdId != cmd.common.cmdId) throw std::runtime_error("Received incorrect command ID from SACI.");
  if (record.respSeqNumber != cmd.common.respSeqNumber)
    throw std::runtime_error("Received unexpected sequence number from SACI.");
  return record.result;
}

std::uint8_t SaciInterface::SendOneWordCmdAndReadResp(SACI_CMD_ID_T id, std::uint16_t cmdSpecific,
                                                      SACI_RESP_T* response) {
  SACI_PARAM_T cmd;
  ConstructCommonParam(&cmd.common, id, cmdSpecific);
  return SendCmdAndReadResp(cmd, response);
}
