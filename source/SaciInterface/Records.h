#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <type_traits>

// Commands and responses of the target ROM's command interface, as they lie on the wire: 32-bit words,
// little-endian. All numbers here are the chip's.

static_assert(std::endian::native == std::endian::little,
              "the byte fields are laid over words as they stand");

enum SACI_CMD_ID_T : std::uint8_t {
  SACI_CMD_NOP = 1,
  SACI_CMD_REQ_PASSWORD_ID = 5,
  SACI_CMD_SUBMIT_AUTH = 6,
  SACI_CMD_EXIT_SACI_HALT = 7,
  SACI_CMD_EXIT_SACI_SHUTDOWN = 8,
  SACI_CMD_ERASE_CHIP = 9,
  SACI_CMD_PROG_CCFG_SECTOR = 12,
  SACI_CMD_PROG_CCFG_USER_RECORD = 13,
  SACI_CMD_PROG_MAIN_SECTOR = 14,
  SACI_CMD_PROG_MAIN_PIPELINED = 15,
  SACI_CMD_VERIFY_MAIN_SECTORS = 16,
  SACI_CMD_VERIFY_CCFG_SECTOR = 17,
  SACI_CMD_RESET_DEVICE = 20,
  SACI_CMD_EXIT_SACI_RUN = 21,
  SACI_CMD_PROG_OTP_SECTOR = 25,
  SACI_CMD_PROG_SCFG_SECTOR = 26,
  SACI_CMD_VERIFY_SCFG_SECTOR = 27,
  SACI_CMD_ERASE_CHIP_KEEP_CFG = 28,
  SACI_CMD_PROG_HSM_FW = 33,
  SACI_CMD_READ_HSM_SYS_INFO = 34,
  SACI_CMD_READ_HSM_UPDATE_STATUS = 35,
};

// Result codes that the device acts on; ConvertResultCodeToString names them all.
enum SACI_CMD_RESULT_T : std::uint8_t {
  SACI_RESULT_SUCCESS = 0,
  SACI_RESULT_NOT_ALLOWED = 134,
  SACI_RESULT_BLANK_CHECK_FAILED = 137,
  SACI_RESULT_HSM_BOOT_FAILED = 142,
};

// The second word of every command that erases or programs.
constexpr std::uint32_t kSaciCommandKey = 0x5C17'E94B;

// The first word of every command.
struct SACI_PARAM_COMMON_T {
  std::uint8_t cmdId;
  std::uint8_t respSeqNumber;  // echoed in the response
  std::uint16_t cmdSpecific;   // a byte count, a word count or flags
};
static_assert(sizeof(SACI_PARAM_COMMON_T) == 4 && alignof(SACI_PARAM_COMMON_T) <= alignof(std::uint32_t));
static_assert(offsetof(SACI_PARAM_COMMON_T, cmdId) == 0 && offsetof(SACI_PARAM_COMMON_T, respSeqNumber) == 1);
static_assert(offsetof(SACI_PARAM_COMMON_T, cmdSpecific) == 2);
static_assert(std::is_trivially_copyable_v<SACI_PARAM_COMMON_T>);

// One command. Sent are the first GetCmdWordCount words; `words` holds what follows the header, so words[0]
// is word 1 of the command. Zero where nothing was put: the rest of a fixed-size command is defined.
struct SACI_PARAM_T {
  SACI_PARAM_COMMON_T common{};
  std::array<std::uint32_t, 514> words{};
};
static_assert(sizeof(SACI_PARAM_T) == 515 * 4 && offsetof(SACI_PARAM_T, words) == 4);
static_assert(std::is_trivially_copyable_v<SACI_PARAM_T>);

struct SACI_RESP_T {
  std::uint8_t cmdId;
  std::uint8_t respSeqNumber;
  std::uint8_t result;
  std::uint8_t dataWordCount;
  std::array<std::uint32_t, 32> data;
};
static_assert(sizeof(SACI_RESP_T) == 33 * 4 && offsetof(SACI_RESP_T, data) == 4);
static_assert(offsetof(SACI_RESP_T, cmdId) == 0 && offsetof(SACI_RESP_T, respSeqNumber) == 1);
static_assert(offsetof(SACI_RESP_T, result) == 2 && offsetof(SACI_RESP_T, dataWordCount) == 3);
static_assert(std::is_trivially_copyable_v<SACI_RESP_T>);
