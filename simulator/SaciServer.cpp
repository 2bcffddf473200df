#include "SaciServer.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "SaciProtocol.h"

namespace simulator {
namespace {

constexpr std::uint32_t kTxDataFull = 1U << 0;
constexpr std::uint32_t kTxCmdStart = 1U << 1;
constexpr std::uint32_t kRxDataReady = 1U << 0;
constexpr std::uint32_t kCmdWorking = 1U << 2;
constexpr std::uint32_t kHsmError = 1U << 3;

constexpr std::uint16_t kAcknowledgeReset = 1;
constexpr Nanoseconds kNever = std::numeric_limits<Nanoseconds>::max();

bool Replaces(const std::optional<SaciFault>& fault) {
  return fault && (fault->action == SaciFault::Action::Result || fault->action == SaciFault::Action::Hang);
}

}  // namespace

void SaciServer::Reset() {
  if (stage == Stage::HsmImage) hsm.Abandon();
  stage = Stage::Idle;
  startFlag = false;
  waiting.reset();
  overrun = false;
  current = {};
  busyUntil = 0;
  answers.clear();
  lastRxWord = 0;
  flashFreeAt = 0;
}

void SaciServer::AdvanceTo(Nanoseconds now) {
  for (;;) {
    if (stage == Stage::Settling) {
      if (now < settledAt) return;
      CarryOut(settledAt);
    } else if (waiting && now >= busyUntil && rom.InSaci(now)) {
      Take(*std::exchange(waiting, std::nullopt), std::max(busyUntil, rom.Arrival()));
    } else {
      return;
    }
  }
}

void SaciServer::WriteTxControl(std::uint32_t value, Nanoseconds now) {
  AdvanceTo(now);
  startFlag = (value & kTxCmdStart) != 0;
}

void SaciServer::WriteTxData(std::uint32_t word, Nanoseconds now) {
  AdvanceTo(now);
  if (waiting) {
    overrun = true;
    return;
  }
  if (stage == Stage::Settling && !startFlag) {
    Refuse(kOverflow, now);
    return;
  }
  const TxWord written{word, startFlag};
  if (stage == Stage::Settling || now < busyUntil || !rom.InSaci(now)) {
    waiting = written;
    return;
  }
  Take(written, now);
}

std::uint32_t SaciServer::ReadTxControl(Nanoseconds now) {
  AdvanceTo(now);
  return (waiting ? kTxDataFull : 0) | (startFlag ? kTxCmdStart : 0);
}

std::uint32_t SaciServer::ReadRxControl(Nanoseconds now) {
  AdvanceTo(now);
  const bool ready = !answers.empty() && answers.front().readyAt <= now;
  const bool programming = stage == Stage::Streaming && now < flashFreeAt;
  const bool working = stage == Stage::Settling || programming || now < busyUntil;
  return (ready ? kRxDataReady : 0) | (working ? kCmdWorking : 0) |
         (ready && answers.front().hsmError ? kHsmError : 0);
}

std::uint32_t SaciServer::ReadRxData(Nanoseconds now) {
  AdvanceTo(now);
  if (answers.empty() || answers.front().readyAt > now) return lastRxWord;
  const RxWord word = answers.front();
  answers.pop_front();
  if (word.resetsWhenTaken) ResetChip(now);
  lastRxWord = word.value;
  return word.value;
}

void SaciServer::Take(TxWord word, Nanoseconds at) {
  if (word.start) {
    BeginCommand(word.value, at);
    return;
  }
  switch (stage) {
    case Stage::Parameters:
      current.words.push_back(word.value);
      if (current.words.size() == wantedWords) {
        stage = Stage::Settling;
        settledAt = std::max(at + costs.command, flashFreeAt);
      }
      return;
    case Stage::Streaming: TakeStreamed(word.value, at); return;
    case Stage::HsmImage:
      if (std::exchange(overrun, false)) {
        hsm.Abandon();
        Refuse(kOverflow, at);
      } else {
        TakeHsmWord(word.value, at);
      }
      return;
    case Stage::Idle:
      current = {.id = static_cast<std::uint8_t>(word.value),
                 .sequence = static_cast<std::uint8_t>(word.value >> 8)};
      overrun = false;
      Refuse(kUnknownCommand, at);
      return;
    case Stage::Discarding: overrun = false; return;
    case Stage::Settling:
    case Stage::Hung: return;  // no word is taken in these
  }
}

void SaciServer::BeginCommand(std::uint32_t header, Nanoseconds at) {
  if (stage == Stage::HsmImage) hsm.Abandon();
  current = {.id = static_cast<std::uint8_t>(header),
             .sequence = static_cast<std::uint8_t>(header >> 8),
             .specific = static_cast<std::uint16_t>(header >> 16)};
  if (std::exchange(overrun, false)) {
    Refuse(kOverflow, at);
    return;
  }
  const ParameterPlan plan = PlanParameters(current);
  if (plan.refusal != 0) {
    Refuse(plan.refusal, at);
    return;
  }
  wantedWords = plan.words;
  stage = wantedWords == 0 ? Stage::Settling : Stage::Parameters;
  settledAt = std::max(at + costs.command, flashFreeAt);
}

void SaciServer::CarryOut(Nanoseconds at) {
  stage = Stage::Idle;
  if (current.id == kProgramPipelined || current.id == kUpdateHsm) {
    // The header of a stream is answered only when it is refused.
    const Outcome begun = Execute(current);
    busyUntil = at + begun.duration;
    if (begun.result != 0) {
      Refuse(begun.result, at);
      return;
    }
    stage = current.id == kUpdateHsm ? Stage::HsmImage : Stage::Streaming;
    return;
  }
  const bool silent = current.id == kResetDevice && (current.specific & kAcknowledgeReset) == 0;
  const std::optional<SaciFault> fault = silent ? std::nullopt : faults.NextAnswer(current.id);
  const bool replaced = Replaces(fault);
  const Outcome outcome = replaced ? Outcome{} : Execute(current);
  busyUntil = at + outcome.duration;
  const bool answered = !silent && Answer(outcome, busyUntil, fault);
  if (outcome.result == 0 && !replaced) LeaveOrReset(busyUntil, answered);
}

void SaciServer::LeaveOrReset(Nanoseconds at, bool answered) {
  switch (current.id) {
    case kExitHalt: rom.LeaveSaci(at, SaciExit::Halt); return;
    case kExitRun: rom.LeaveSaci(at, SaciExit::Run); return;
    case kExitShutdown: rom.LeaveSaci(at, SaciExit::Shutdown); return;
    case kResetDevice:
      // The acknowledgement would not survive the reset, so the ROM waits until it has been read.
      if (answered)
        answers.back().resetsWhenTaken = true;
      else
        ResetChip(at);
      return;
    default: return;
  }
}

void SaciServer::TakeStreamed(std::uint32_t word, Nanoseconds at) {
  if (at < streamBufferFreeAt) {
    Refuse(kOverflow, std::max(at, flashFreeAt));
    return;
  }
  for (unsigned shift = 0; shift < 32; shift += 8)
    streamBuffer.push_back(static_cast<std::uint8_t>(word >> shift));
  if (streamBuffer.size() == description.sectorSize) ProgramStreamed(at);
}

// The flash takes the full buffer as soon as it is done with the one before; only then is that one free.
void SaciServer::ProgramStreamed(Nanoseconds at) {
  const Nanoseconds start = std::max(at, flashFreeAt);
  if (streamAddress >= description.mainSize) {
    Refuse(kBadAddress, start);
    return;
  }
  const std::optional<SaciFault> fault = faults.NextAnswer(current.id);
  if (Replaces(fault)) {
    stage = Stage::Discarding;
    Answer({}, start, fault);
    return;
  }
  memory.Program(memory.Main(), streamAddress, streamBuffer);
  streamAddress += description.sectorSize;
  streamBuffer.clear();
  streamBufferFreeAt = start;
  flashFreeAt = start + costs.programSector;
  Answer({}, flashFreeAt, fault);
  ++current.sequence;
}

void SaciServer::TakeHsmWord(std::uint32_t word, Nanoseconds at) {
  switch (hsm.Take(word)) {
    case Hsm::Progress::Wanted: return;
    case Hsm::Progress::RecordDone: busyUntil = at + costs.hsmRecord; return;
    case Hsm::Progress::Refused:
      busyUntil = at + costs.hsmRecord;
      stage = Stage::Discarding;
      Answer({.result = hsm.Refusal()}, busyUntil, faults.NextAnswer(current.id), true);
      return;
    case Hsm::Progress::Complete: break;
  }
  busyUntil = at + costs.hsmUpdate;
  stage = Stage::Idle;
  const std::optional<SaciFault> fault = faults.NextAnswer(current.id);
  Outcome outcome;
  if (!Replaces(fault)) outcome.result = hsm.Install();
  Answer(outcome, busyUntil, fault);
}

void SaciServer::Refuse(std::uint8_t result, Nanoseconds at) {
  stage = Stage::Discarding;
  Answer({.result = result}, at, faults.NextAnswer(current.id));
}

bool SaciServer::Answer(Outcome outcome, Nanoseconds at, const std::optional<SaciFault>& fault,
                        bool hsmError) {
  std::uint8_t id = current.id;
  std::uint8_t sequence = current.sequence;
  if (fault) {
    switch (fault->action) {
      case SaciFault::Action::Result: outcome.result = static_cast<std::uint8_t>(fault->value); break;
      case SaciFault::Action::Lost: return false;
      case SaciFault::Action::Late: at += fault->value * kMillisecond; break;
      case SaciFault::Action::WrongId: id = static_cast<std::uint8_t>(~id); break;
      case SaciFault::Action::WrongSequence: ++sequence; break;
      case SaciFault::Action::Count: outcome.data.resize(fault->value); break;
      case SaciFault::Action::Hang: Hang(); return false;
    }
  }
  const auto header = id | std::uint32_t{sequence} << 8 | std::uint32_t{outcome.result} << 16 |
                      static_cast<std::uint32_t>(outcome.data.size()) << 24;
  answers.push_back({.value = header, .readyAt = at, .hsmError = hsmError});
  for (const std::uint32_t word : outcome.data) answers.push_back({.value = word, .readyAt = at});
  return true;
}

void SaciServer::Hang() {
  stage = Stage::Hung;
  busyUntil = kNever;
}

void SaciServer::ResetChip(Nanoseconds at) {
  Reset();
  rom.Reset(at, ResetKind::Pin);
}

}  // namespace simulator
