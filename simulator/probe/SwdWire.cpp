#include "SwdWire.h"

#include <algorithm>

namespace simulator {
namespace {

constexpr std::uint32_t kPowerOnFrequency = 1'000'000;
constexpr unsigned kHeadClocks = 8 + 3;  // request, acknowledgement; two turnarounds come on top
constexpr unsigned kDataClocks = 33;     // with parity

}  // namespace

SwdWire::SwdWire(SwdTarget& attached, std::uint64_t fastest)
    : target(attached),
      clock(attached.chip.Clock()),
      fastestHertz(fastest),
      frequency(std::min<std::uint64_t>(kPowerOnFrequency, fastest)) {
  Reckon();
}

void SwdWire::SetFrequency(std::uint32_t hertz) {
  frequency = std::min<std::uint64_t>(hertz, fastestHertz);
  Reckon();
}

void SwdWire::SetFraming(const SwdFraming& wanted) {
  framing = wanted;
  Reckon();
}

void SwdWire::SetIdleClocks(unsigned count) {
  idleClocks = count;
  Reckon();
}

Ack SwdWire::Transfer(std::uint8_t request, std::uint32_t& data) {
  clock.Advance(headTime);
  const Ack ack = target.line.Transfer(request, data, framing);
  if (ack == Ack::Ok || framing.alwaysDataPhase) clock.Advance(dataTime);
  if (ack == Ack::Ok) ++words;
  return ack;
}

void SwdWire::Drive(std::span<const std::uint8_t> bits, unsigned count) {
  clock.Advance(Clocks(count));
  for (unsigned i = 0; i < count; ++i) target.line.Clock((bits[i / 8] >> (i % 8) & 1) != 0);
}

void SwdWire::Sample(PacketWriter& into, unsigned count) {
  clock.Advance(Clocks(count));
  unsigned byte = 0;
  for (unsigned i = 0; i < count; ++i) {
    byte |= unsigned{target.line.Clock(std::nullopt)} << (i % 8);
    if (i % 8 != 7 && i + 1 != count) continue;
    into.Byte(static_cast<std::uint8_t>(byte));
    byte = 0;
  }
}

void SwdWire::Reckon() {
  const std::uint64_t head = kHeadClocks + 2 * framing.turnaround + idleClocks;
  headTime = Clocks(head);
  dataTime = Clocks(head + kDataClocks) - headTime;
}

}  // namespace simulator
