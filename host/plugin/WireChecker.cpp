#include "host/plugin/WireChecker.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "host/plugin/SaciNames.h"

namespace host {

namespace {

constexpr std::uint32_t kKey = 0x5C17E94B;
constexpr std::uint64_t kStartFlag = 2;
constexpr std::uint64_t kLowestBit = 1;  // TX_DATA_FULL, RX_DATA_READY
constexpr std::uint64_t kBootStatusSaci = 0x20;
constexpr std::uint16_t kAcknowledge = 1;

constexpr std::uint8_t kResetDevice = 20;
constexpr std::uint8_t kPipelined = 15;
constexpr std::uint8_t kHsmFirmware = 33;
constexpr std::uint8_t s_keyed[] = {9, 12, 13, 14, 15, 25, 26, 28};
constexpr std::uint8_t s_leavingSaci[] = {7, 8, 21};

bool Holds(std::span<const std::uint8_t> ids, std::uint8_t id) {
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

std::vector<std::uint32_t> AsWords(std::span<const std::uint8_t> bytes) {
  std::vector<std::uint32_t> words(bytes.size() / sizeof(std::uint32_t));
  if (!words.empty()) std::memcpy(words.data(), bytes.data(), words.size() * sizeof(std::uint32_t));
  return words;
}

}  // namespace

void WireChecker::Take(const HostCall& call) {
  number = call.number;
  if (call.function == "ResetTarget") TakeReset();
  if (call.error) return;
  if (call.function == "LookupReg") registers[call.address.value_or(0)] = std::string(*call.subject);
  if (call.function == "ReadReg" || call.function == "WriteReg") TakeRegister(call);
  if (isLost || call.core != "SEC_AP") return;
  if (call.function == "WriteMemory") Push(AsWords(call.data));
  if (call.function == "ReadMemory") Pop(AsWords(call.data));
}

void WireChecker::TakeRegister(const HostCall& call) {
  const auto found = registers.find(call.address.value_or(0));
  if (found == registers.end()) return;
  const std::string& name = found->second;
  const std::uint64_t value = call.value.value_or(0);
  if (call.function == "ReadReg") {
    if (name == "SECAP_TXCTL") txEmpty = (value & kLowestBit) == 0;
    if (name == "SECAP_RXCTL") answerReady = (value & kLowestBit) != 0;
    if (name == "CFGAP_DEVICESTATUS") inSaci = (value >> 8 & 0xFF) == kBootStatusSaci;
  } else if (name == "SECAP_TXCTL" && (value == 0 || value == kStartFlag)) {
    startFlag = value == kStartFlag;
  } else if (name == "SECAP_RSTCTL" && value == kResetIntoSaci) {
    TakeReset();
  } else {
    Find("register", fmt::format("{} is written with 0x{:x}", name, value));
  }
}

void WireChecker::TakeReset() {
  isLost = false;
  inSaci = false;
  startFlag = false;
  txEmpty = false;
  answerReady = false;
  answerLeft = 0;
  nextSequence = 0;
  command = {};
}

void WireChecker::Push(std::span<const std::uint32_t> words) {
  if (startFlag && words.size() > 1)
    Find("start flag", fmt::format("is set for {} words; the header is one", words.size()));
  for (const std::uint32_t word : words) {
    if (startFlag) {
      BeginCommand(word);
      if (words.size() > 1) return;
    } else if (command.words < command.wanted) {
      TakeParameter(word);
    } else {
      TakeStream();
    }
  }
}

void WireChecker::BeginCommand(std::uint32_t header) {
  CheckTurn();
  command = {.id = static_cast<std::uint8_t>(header),
             .sequence = static_cast<std::uint8_t>(header >> 8),
             .specific = static_cast<std::uint16_t>(header >> 16),
             .words = 1};
  command.wanted = WordsOf(command);
  command.takesStream = command.id == kPipelined;
  command.isAnswered = command.takesStream;  // its sectors are answered, if there are any
  if (command.wanted == 0) {
    Find("command", fmt::format("there is no command {}", command.id));
    command.wanted = 1;
  }
  if (nextSequence && command.sequence != *nextSequence)
    Find("sequence",
         fmt::format("command {} has number {} instead of {}", command.id, command.sequence, *nextSequence));
  nextSequence = static_cast<std::uint8_t>(command.sequence + 1);
  txEmpty = false;
  answerReady = false;
  answerLeft = 0;
  if (command.id != kResetDevice || (command.specific & kAcknowledge) != 0) return;
  TakeReset();  // at once, and without an answer
}

void WireChecker::CheckTurn() {
  if (!inSaci) Find("in SACI", "a command goes out before the chip was seen in SACI");
  if (!txEmpty) Find("TX empty", "a command goes out before TX_DATA_FULL was seen clear");
  if (command.words < command.wanted || command.stream != 0)
    Find("command", fmt::format("command {} is cut short by the next", command.id));
  else if (!command.isAnswered || answerLeft != 0)
    Find("answer", fmt::format("that of command {} was not read", command.id));
}

void WireChecker::TakeParameter(std::uint32_t word) {
  ++command.words;
  if (command.words == 2 && Holds(s_keyed, command.id) && word != kKey)
    Find("key", fmt::format("command {} comes with 0x{:08x}", command.id, word));
  if (command.words == 2 && command.id == kHsmFirmware) command.stream = word;
}

void WireChecker::TakeStream() {
  if (command.id == kPipelined) command.isAnswered = false;
  if (command.takesStream) return;
  if (command.stream != 0) {
    --command.stream;
    return;
  }
  Find("command", command.words == 0
                      ? "words come without a command"
                      : fmt::format("command {} has more than its {} words", command.id, command.wanted));
  command.takesStream = true;  // told once
}

void WireChecker::Pop(std::span<const std::uint32_t> words) {
  for (const std::uint32_t word : words) {
    if (answerLeft != 0) {
      --answerLeft;
    } else if (std::exchange(answerReady, false)) {
      TakeAnswer(word);
    } else {
      Find("answer", "a word is read that was not seen ready");
      return;
    }
  }
  if (!command.isAnswered || answerLeft != 0) return;
  if (command.id == kResetDevice) TakeReset();
}

// A refused command leaves nothing to stream, and the chip where it was.
void WireChecker::TakeAnswer(std::uint32_t header) {
  const auto result = static_cast<std::uint8_t>(header >> 16);
  answerLeft = header >> 24;
  command.isAnswered = true;
  if (result != 0) command.stream = 0;
  if (result == 0 && Holds(s_leavingSaci, command.id)) inSaci = false;
}

// 0 for a command that does not exist.
std::size_t WireChecker::WordsOf(const Command& header) const {
  constexpr std::uint16_t kMostPasswordWords = 16;
  switch (header.id) {
    case 1:
    case 5:
    case 7:
    case 8:
    case 20:
    case 21:
    case 34:
    case 35: return 1;
    case 6: return 1U + std::min(header.specific, kMostPasswordWords);
    case 9:
    case 27:
    case 28:
    case 33: return 2;
    case 12: return 2 + sizes.ccfg / 4;
    case 13: return 2 + sizes.userRecord / 4;
    case 14: return 3U + (header.specific + 3U) / 4;
    case 15: return 3;
    case 16: return 4;
    case 17: return 5;
    case 25: return 514;
    case 26: return 2 + sizes.scfg / 4;
    default: return 0;
  }
}

void WireChecker::Find(std::string_view rule, std::string what) {
  findings.push_back({rule, number, std::move(what)});
}

}  // namespace host
