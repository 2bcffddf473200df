#include "host/plugin/SaciWatch.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "host/probe/DebugProbe.h"

namespace host {

namespace {

constexpr std::uint64_t kCommandStart = 2;  // SECAP_TXCTL: TX_CMD_START
constexpr std::uint32_t kMostResponseWords = 32;

// A load of 1 MiB in the smallest blocks makes about a thousand exchanges.
constexpr std::size_t kMostKept = 100'000;
constexpr std::size_t kMostBytesCompared = 1U << 20;

// The words between a command's header and its data.
std::size_t OwnWords(std::uint8_t command) {
  switch (command) {
    case saci::kProgramCcfg:
    case saci::kProgramUserRecord:
    case saci::kProgramOtp:
    case saci::kProgramScfg:
    case saci::kUpdateHsm: return 1;
    case saci::kProgramSector:
    case saci::kProgramPipelined: return 2;
    case saci::kSubmitPassword: return 0;
    default: return 4;
  }
}

}  // namespace

bool SaciExchange::HasFailed() const {
  const bool wantsNoAnswer = command == saci::kResetDevice && (argument & saci::kBit16) == 0;
  if (wantsNoAnswer && !result) return isAnswerWrong;
  return Result() != 0;
}

std::optional<std::uint8_t> SaciExchange::Result() const {
  if (isAnswerWrong || wordsMissing != 0) return std::nullopt;
  return result;
}

AddressRange SaciExchange::MainRange() const {
  switch (command) {
    case saci::kProgramSector: return {parameters[1], argument};
    case saci::kProgramPipelined: return {parameters[1], dataBytes};
    case saci::kVerifyMain: return {parameters[0], parameters[1]};
    default: return {};
  }
}

bool SaciExchange::Compares() const {
  if ((argument & saci::kBit31) != 0) return false;
  switch (command) {
    case saci::kVerifyMain: return true;
    case saci::kVerifyCcfg: return (argument & saci::kBit16) != 0 || (argument & saci::kBit17) == 0;
    case saci::kVerifyScfg: return (argument & saci::kBit16) != 0;
    default: return false;
  }
}

void SaciWatch::Saw(const HostCall& call, std::uint64_t elapsedNs) {
  const bool isWrite = call.function == "WriteMemory";
  if (call.function == "LookupReg") {
    if (call.subject && call.address && !call.error) LearnRegister(*call.subject, *call.address);
  } else if (call.function == "WriteReg") {
    WroteRegister(call, elapsedNs);
  } else if (call.function == "ResetTarget") {
    Reset(false, call, elapsedNs);
  } else if (isWrite || call.function == "ReadMemory") {
    if (call.core == CoreName(Core::SecureAp)) {
      MovedWords(call, isWrite, elapsedNs);
    } else {
      MovedMemory(call, isWrite);
    }
  }
  const std::uint64_t since = elapsedNs - std::min(lastNs.value_or(elapsedNs), elapsedNs);
  phaseNs[static_cast<std::size_t>(phase)] += since;
  lastNs = elapsedNs;
}

void SaciWatch::LearnRegister(std::string_view name, std::uint64_t address) {
  if (name == "SECAP_TXCTL") txControl = address;
  if (name == "SECAP_RSTCTL") resetControl = address;
}

void SaciWatch::WroteRegister(const HostCall& call, std::uint64_t ns) {
  if (!call.address || call.error) return;
  if (call.address == txControl) startFlag = (call.value.value_or(0) & kCommandStart) != 0;
  if (call.address == resetControl && call.value == kResetIntoSaci) Reset(true, call, ns);
}

void SaciWatch::Reset(bool intoSaci, const HostCall& call, std::uint64_t ns) {
  phase = Phase::Reset;
  if (call.error) return;
  isOpen = false;  // what comes now answers nothing that was asked before
  startFlag = false;
  Keep(resets, TargetReset{intoSaci, call.number, ns});
}

void SaciWatch::MovedWords(const HostCall& call, bool isWrite, std::uint64_t ns) {
  if (isOpen) {
    exchanges.back().lastCall = call.number;
    exchanges.back().endNs = ns;
  }
  if (call.error) return;
  for (std::size_t at = 0; at + sizeof(std::uint32_t) <= call.data.size(); at += sizeof(std::uint32_t)) {
    std::uint32_t word = 0;
    for (unsigned i = 0; i < sizeof word; ++i) word |= std::uint32_t{call.data[at + i]} << 8 * i;
    if (!isWrite) {
      Received(word);
    } else if (startFlag && at == 0) {
      Begin(word, call, ns);
    } else {
      Sent(word);
    }
  }
  if (isWrite) CountWritten(call.data.size());  // a header has begun its phase by now
}

void SaciWatch::CountWritten(std::uint64_t bytes) {
  bytesWritten += bytes;
  phaseBytes[static_cast<std::size_t>(phase)] += bytes;
}

void SaciWatch::Begin(std::uint32_t header, const HostCall& call, std::uint64_t ns) {
  const auto command = static_cast<std::uint8_t>(header);
  phase = PhaseOf(command, phase);
  wordsSent = 0;
  wordsExpected = 0;
  SaciExchange exchange;
  exchange.command = command;
  exchange.sequence = static_cast<std::uint8_t>(header >> 8);
  exchange.argument = static_cast<std::uint16_t>(header >> 16);
  exchange.firstCall = exchange.lastCall = call.number;
  exchange.beginNs = exchange.endNs = ns;
  isOpen = Keep(exchanges, std::move(exchange));
}

void SaciWatch::Sent(std::uint32_t word) {
  if (!isOpen) return;
  SaciExchange& exchange = exchanges.back();
  const std::size_t index = wordsSent++;
  if (index >= OwnWords(exchange.command)) {
    exchange.dataBytes += sizeof word;
  } else {
    exchange.parameters[index] = word;
  }
}

void SaciWatch::Received(std::uint32_t word) {
  if (wordsExpected > 0) {
    --wordsExpected;
    if (!isOpen || exchanges.back().wordsMissing == 0) return;
    exchanges.back().words.push_back(word);
    --exchanges.back().wordsMissing;
    return;
  }
  const std::uint32_t count = word >> 24;
  if (count <= kMostResponseWords) wordsExpected = count;
  if (!isOpen) return;
  SaciExchange& exchange = exchanges.back();
  exchange.words.clear();
  const auto result = static_cast<std::uint8_t>(word >> 16);
  // Acknowledgements of sectors count on from the command's own number; one that got lost is made up for by
  // the next.
  const bool isStream = exchange.command == saci::kProgramPipelined;
  const auto ahead =
      static_cast<std::uint8_t>((word >> 8) - exchange.sequence - exchange.sectorsAcknowledged);
  if (static_cast<std::uint8_t>(word) != exchange.command || ahead > (isStream ? 1 : 0) ||
      count > kMostResponseWords) {
    exchange.isAnswerWrong = true;
    return;
  }
  if (isStream) exchange.sectorsAcknowledged += ahead + (result == 0 ? 1U : 0U);
  exchange.result = result;
  exchange.wordsMissing = count;
}

void SaciWatch::MovedMemory(const HostCall& call, bool isWrite) {
  const auto size = static_cast<std::uint32_t>(call.data.size());
  MemoryAccess access{.range = {static_cast<std::uint32_t>(call.address.value_or(0)), size},
                      .isWrite = isWrite,
                      .hasFailed = call.error.has_value(),
                      .equalsWritten = {},
                      .call = call.number};
  if (isWrite) {
    phase = Phase::Ram;
    lastWritten.clear();
    if (!access.hasFailed) CountWritten(size);
    if (!access.hasFailed && size <= kMostBytesCompared)
      lastWritten.assign(call.data.begin(), call.data.end());
  } else if (!access.hasFailed && !accesses.empty() && accesses.back().isWrite &&
             accesses.back().range == access.range && lastWritten.size() == size) {
    access.equalsWritten = std::equal(lastWritten.begin(), lastWritten.end(), call.data.begin());
  }
  Keep(accesses, access);
}

template <typename Entry>
bool SaciWatch::Keep(std::vector<Entry>& list, Entry entry) {
  if (list.size() >= kMostKept) {
    isIncomplete = true;
    return false;
  }
  list.push_back(std::move(entry));
  return true;
}

}  // namespace host
