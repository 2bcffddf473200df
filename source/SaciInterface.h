#pragma once

#include <cstdint>
#include <exception>
#include <span>
#include <string>
#include <vector>

#include "IFlashProgrammerUtility2.h"
#include "SaciInterface/Records.h"
#include "ScopeGuard.h"

// The one channel to the command interface that the target's boot ROM runs on the security access port.
//
// Commands return the ROM's 8-bit result code (0 is success) and throw std::runtime_error for what the
// transport finds wrong: a time-out, a wrong echo, a host failure. Every word transfer leaves "CS_DAP_0" the
// current core. Times are milliseconds of the host's Sleep.
class SaciInterface {
 public:
  // Room of a command, in bytes; the chip's.
  static constexpr std::uint32_t kMaxMainSectorSize = 2048;
  static constexpr std::uint32_t kMaxCcfgSize = 2048;
  static constexpr std::uint32_t kMaxScfgSize = 1024;
  static constexpr std::uint32_t kMaxCcfgUserRecordSize = 128;

  // `hostUtility` is not owned and outlives this object. Makes "CS_DAP_0" current and looks up the registers.
  SaciInterface(IFlashProgrammerUtility2* hostUtility, std::uint32_t mainSectorBytes, std::uint32_t ccfgBytes,
                std::uint32_t ccfgUserRecordBytes);

  // Sizes in bytes. Throw above the room of a command.
  void setMainSectorSize(std::uint32_t size);
  void setCcfgSize(std::uint32_t size);
  void setScfgSize(std::uint32_t size);
  void setCcfgUserRecordSize(std::uint32_t size);

  // To be called whenever the ROM restarts: sequence numbers count from 0 again.
  void ResetInterfaceState() { nextSeqNumber = 0; }

  // --- Transport ---

  void WriteTxFlags(std::uint32_t value);
  [[nodiscard]] std::uint32_t ReadTxFlags();
  [[nodiscard]] std::uint32_t ReadRxFlags();

  // One host transfer for the whole range of 32-bit words; none for an empty one.
  template <typename Iterator>
  void WriteTxWords(Iterator first, Iterator last);
  template <typename Iterator>
  void ReadRxWords(Iterator first, Iterator last);

  void WaitForTxDataEmpty(std::uint32_t timeout, std::uint32_t pollInterval);
  void WaitForRxDataReady(std::uint32_t timeout, std::uint32_t pollInterval);
  void WaitForSaciToClearCmdWorkingFlag(std::uint32_t timeout, std::uint32_t pollInterval);

  [[nodiscard]] std::uint32_t GetCmdWordCount(const SACI_PARAM_T& cmd) const;
  std::uint8_t GenRespSeqNumber() { return nextSeqNumber++; }
  void ConstructCommonParam(SACI_PARAM_COMMON_T* common, SACI_CMD_ID_T id, std::uint16_t cmdSpecific);
  void WriteCmdWords(const std::vector<std::uint32_t>& words);
  void SendCmd(const SACI_PARAM_T& cmd);
  void ReadResponse(SACI_RESP_T& response);
  // A caller that wants the result alone passes no record.
  std::uint8_t SendCmdAndReadResp(const SACI_PARAM_T& cmd, SACI_RESP_T* response);
  std::uint8_t SendOneWordCmdAndReadResp(SACI_CMD_ID_T id, std::uint16_t cmdSpecific, SACI_RESP_T* response);

  [[nodiscard]] static const char* ConvertResultCodeToString(SACI_CMD_RESULT_T result);
  [[nodiscard]] static const char* ConvertResultCodeToString(std::uint8_t result) {
    return ConvertResultCodeToString(static_cast<SACI_CMD_RESULT_T>(result));
  }

  // --- Commands ---

  std::uint8_t Nop();
  // `passwordId` is written only when the target reports one.
  std::uint8_t ReqPasswordId(bool& hasId, std::uint64_t& passwordId);
  // The first 64 bytes of the password are sent, the header states its full length in words.
  std::uint8_t SubmitAuth(const std::string& password, bool isHex);
  std::uint8_t ExitSaciHalt();
  std::uint8_t ExitSaciShutdown();
  std::uint8_t ExitSaciRun();
  // `retainedWords` receives the target's retain field when `retainMainSectors`; must not be null then.
  std::uint8_t EraseChip(bool retainMainSectors, bool retainCcfgScfg,
                         std::vector<std::uint32_t>* retainedWords);
  // Data beyond the room of a command is cut.
  std::uint8_t ProgCcfgSector(const std::vector<std::uint8_t>& image, bool skipUserRecord);
  std::uint8_t ProgCcfgUserRecord(const std::vector<std::uint8_t>& record);
  std::uint8_t ProgScfgSector(const std::vector<std::uint8_t>& image);
  std::uint8_t ProgOtpSector(const std::vector<std::uint8_t>& data);
  std::uint8_t ProgMainSector(std::uint32_t address, const std::vector<std::uint8_t>& data);
  std::uint8_t VerifyMainSectors(std::uint32_t address, std::uint32_t length, std::uint32_t crc,
                                 bool blankCheck);
  // The CRCs of boot configuration, whole sector, user record and debug configuration; `skipUserRecordCrc`
  // leaves the third out of the comparison.
  std::uint8_t VerifyCcfgSector(bool checkCrcs, bool skipUserRecordCrc, bool blankCheck, std::uint32_t crc1,
                                std::uint32_t crc2, std::uint32_t crc3, std::uint32_t crc4);
  std::uint8_t VerifyScfgSector(bool checkCrc, std::uint32_t crc);
  // Unless `acknowledge`, no response is awaited and 0 is returned.
  std::uint8_t ResetDevice(bool acknowledge);

  // --- Streams: these return 0 and throw for every failure ---

  // `data` is whole chunks; `chunkSize` in bytes is a non-zero multiple of 4 (the MAIN sector size).
  std::uint8_t ProgMainPipelined(std::uint32_t address, const std::vector<std::uint8_t>& data,
                                 unsigned long chunkSize);

  // `image` is whole words.
  std::uint8_t ProgHsmFw(const std::vector<std::uint8_t>& image);
  // `image` is a chain of length-prefixed records, sent one by one.
  std::uint8_t ProgHsmFwBleMid(const std::vector<std::uint8_t>& image);
  void ParseHsmCommandResponse();
  void CheckForHsmFwError();
  std::uint8_t ReadHsmSysInfo(std::string* versionText);
  // Appends to `statusText`.
  std::uint8_t ReadHsmUpdateStatus(std::string* statusText);

 private:
  static constexpr std::uint32_t kPollInterval = 100;  // ms, in every wait

  template <typename Transfer>
  void WithSecApCurrent(Transfer transfer);

  // The key and at most `room` bytes of `data`.
  std::uint8_t SendKeyedData(SACI_CMD_ID_T id, std::uint16_t cmdSpecific,
                             const std::vector<std::uint8_t>& data, std::size_t room);
  void ReadPipelinedAck(std::uint64_t newest, std::uint32_t& lastAck);
  void StartHsmFwStream(std::size_t imageWords);
  SACI_RESP_T RequestHsmWords(SACI_CMD_ID_T id);

  IFlashProgrammerUtility2* utility;
  std::uint8_t nextSeqNumber = 0;
  std::uint32_t mainSectorSize = 0;
  std::uint32_t ccfgSize = 0;
  std::uint32_t scfgSize = 0;
  std::uint32_t ccfgUserRecordSize = 0;
  Debugger::Address txCtlReg;
  Debugger::Address rxCtlReg;
  Debugger::Address deviceStatusReg;
};

// Throws std::runtime_error, `prefix` followed by the result's text, for every result but success.
void RequireSaciSuccess(std::uint8_t result, const char* prefix);

// The data word of the security access port is address 0 of its core.
constexpr unsigned long long kSaciDataWord = 0;
constexpr short kSaciDataPage = 1;

template <typename Iterator>
void SaciInterface::WriteTxWords(Iterator first, Iterator last) {
  WithSecApCurrent([&] { utility->WriteMemory(first, last, kSaciDataWord, kSaciDataPage); });
}

template <typename Iterator>
void SaciInterface::ReadRxWords(Iterator first, Iterator last) {
  WithSecApCurrent([&] { utility->ReadMemory(first, last, kSaciDataWord, kSaciDataPage); });
}

// Switching back is tried however the transfer ends. Its own failure is told only after a transfer that went
// well, so that it never hides the first failure.
template <typename Transfer>
void SaciInterface::WithSecApCurrent(Transfer transfer) {
  std::exception_ptr restoreFailure;
  utility->SetCoreById("SEC_AP");
  {
    const ScopeGuard restoreCore([&] {
      try {
        utility->SetCoreById("CS_DAP_0");
      } catch (...) {
        restoreFailure = std::current_exception();
      }
    });
    if (!utility->IsConnected()) utility->Connect(false);
    transfer();
  }
  if (restoreFailure) std::rethrow_exception(restoreFailure);
}
