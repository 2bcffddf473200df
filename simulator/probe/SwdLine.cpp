#include "SwdLine.h"

#include <bit>

namespace simulator {
namespace {

constexpr unsigned kLineReset = 50;  // ones
constexpr std::uint16_t kJtagToSwd = 0xE79E;
constexpr std::uint16_t kSwdToJtag = 0xE73C;
constexpr std::uint16_t kSwdToDormant = 0xE3BC;
constexpr std::uint32_t kJtagToDormant = 0x33BB'BBBA;  // 31 bits
constexpr std::uint64_t kAlert[] = {0x8685'2D95'6209'F392, 0x19BC'0EA2'E3DD'AFE9};
constexpr std::uint64_t kActivateSwd = 0x1A0;  // behind four zeros
constexpr std::uint64_t kActivateJtag = 0x0A0;
constexpr unsigned kActivationBits = 12;

constexpr unsigned kIdleBits = 2;     // zeros behind a line reset
constexpr unsigned kRequestBits = 8;  // start, four of the request, parity, stop, park
constexpr unsigned kAckBits = 3;
constexpr unsigned kDataBits = 33;  // with parity
constexpr unsigned kTurnaround = 1;

std::uint64_t Parity(std::uint64_t value) {
  return static_cast<std::uint64_t>(std::popcount(value)) & 1;
}

std::uint64_t WithParity(std::uint32_t data) {
  return data | Parity(data) << 32;
}

}  // namespace

bool SwdLine::Clock(std::optional<bool> driven) {
  if (!IsListening()) return true;
  if (phase == Phase::Sending) return Send();
  const bool level = driven.value_or(true);
  Remember(level);
  Follow(level);
  return level;
}

Ack SwdLine::Transfer(std::uint8_t wanted, std::uint32_t& data, const SwdFraming& framing) {
  if (!IsListening() || phase != Phase::Idle) return Ack::None;
  ones = 0;
  recent[0] = recent[1] = 0;
  const Ack ack = framing.turnaround == kTurnaround ? debugPort.Judge(wanted) : Ack::None;
  if (ack == Ack::Ok) {
    if ((wanted & kReadRequest) != 0)
      data = debugPort.Read(wanted);
    else
      debugPort.Write(wanted, data);
  } else if (ack == Ack::None || framing.alwaysDataPhase != debugPort.DetectsOverruns()) {
    phase = Phase::Locked;
  }
  return ack;
}

bool SwdLine::IsListening() {
  if (ports.IsPowered() && !ports.TakeRestart()) return true;
  phase = Phase::Jtag;
  debugPort.PowerOn();
  return false;
}

bool SwdLine::Send() {
  const bool level = (bits & 1) != 0;
  bits >>= 1;
  Remember(level);
  if (--clocksLeft == 0) Begin(dataFollows ? Phase::Receiving : Phase::Idle, kDataBits);
  return level;
}

void SwdLine::Remember(bool level) {
  ones = level ? ones + 1 : 0;
  recent[0] = recent[0] >> 1 | recent[1] << 63;
  recent[1] = recent[1] >> 1 | std::uint64_t{level} << 63;
}

void SwdLine::Follow(bool level) {
  switch (phase) {
    case Phase::Jtag:
      if (IsSelection(kJtagToSwd)) phase = Phase::Locked;
      if (recent[1] >> 33 == kJtagToDormant) phase = Phase::Dormant;
      return;
    case Phase::Dormant:
      if (recent[0] == kAlert[0] && recent[1] == kAlert[1]) Begin(Phase::Activating, kActivationBits);
      return;
    case Phase::Activating:
      if (Collect(level))
        phase = bits == kActivateSwd ? Phase::Locked : bits == kActivateJtag ? Phase::Jtag : Phase::Dormant;
      return;
    case Phase::Locked:
    case Phase::Reset:
    case Phase::Idle:
    case Phase::Request:
    case Phase::Sending:
    case Phase::Receiving: FollowWire(level); return;
  }
}

void SwdLine::FollowWire(bool level) {
  if (IsSelection(kSwdToJtag)) {
    phase = Phase::Jtag;
  } else if (IsSelection(kSwdToDormant)) {
    phase = Phase::Dormant;
  } else if (ones >= kLineReset) {
    debugPort.LineReset();
    Begin(Phase::Reset, kIdleBits);
  } else {
    FollowTransfer(level);
  }
}

void SwdLine::FollowTransfer(bool level) {
  switch (phase) {
    case Phase::Reset:
      if (Collect(level)) phase = Phase::Idle;
      if (level) phase = Phase::Locked;
      return;
    case Phase::Idle:
      if (!level) return;
      Begin(Phase::Request, kRequestBits);
      Collect(level);
      return;
    case Phase::Request:
      if (Collect(level)) Answer();
      return;
    case Phase::Receiving:
      if (Collect(level)) TakeData();
      return;
    case Phase::Jtag:
    case Phase::Dormant:
    case Phase::Activating:
    case Phase::Locked:
    case Phase::Sending: return;
  }
}

bool SwdLine::IsSelection(std::uint16_t code) const {
  constexpr std::uint64_t kOnes = 0xFFFF'FFFF'FFFF;  // with two before: 50
  return recent[1] == (std::uint64_t{code} << 48 | kOnes) && recent[0] >> 62 == 3;
}

void SwdLine::Begin(Phase next, unsigned length) {
  phase = next;
  clocks = clocksLeft = length;
  bits = 0;
}

bool SwdLine::Collect(bool level) {
  bits |= std::uint64_t{level} << (clocks - clocksLeft);
  return --clocksLeft == 0;
}

// The request is complete: start bit 1, the request, parity, stop bit 0, park bit 1.
void SwdLine::Answer() {
  request = static_cast<std::uint8_t>(bits >> 1 & 0xF);
  const bool isWellFormed = bits == (0x81 | std::uint64_t{request} << 1 | Parity(request) << 5);
  const Ack ack = isWellFormed ? debugPort.Judge(request) : Ack::None;
  if (ack == Ack::None) {
    phase = Phase::Locked;
    return;
  }
  const bool isRead = (request & kReadRequest) != 0;
  dataIsWelcome = ack == Ack::Ok;
  const bool hasData = dataIsWelcome || debugPort.DetectsOverruns();
  dataFollows = hasData && !isRead;
  std::uint64_t answer = static_cast<std::uint64_t>(ack);
  unsigned length = kAckBits;
  if (hasData && isRead) {
    const std::uint32_t data = dataIsWelcome ? debugPort.Read(request) : 0;
    answer |= WithParity(data) << kAckBits;
    length += kDataBits;
  }
  // Nobody drives during the turnarounds, so that they read as ones.
  Begin(Phase::Sending, length + 2 * kTurnaround);
  bits = 1 | answer << kTurnaround | std::uint64_t{1} << (length + kTurnaround);
}

void SwdLine::TakeData() {
  phase = Phase::Idle;
  if (!dataIsWelcome) return;
  const auto data = static_cast<std::uint32_t>(bits);
  if (bits == WithParity(data))
    debugPort.Write(request, data);
  else
    debugPort.RefuseData();
}

}  // namespace simulator
