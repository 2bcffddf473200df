#pragma once

#include <cstdint>
#include <span>

#include "Packet.h"
#include "SwdTarget.h"

namespace simulator {

// The probe's end of the serial wire. What happens on it takes its clocks on the chip's clock: an access is
// made with its acknowledgement.
class SwdWire {
 public:
  // `attached` must outlive this object. No frequency above `fastest` is reached.
  SwdWire(SwdTarget& attached, std::uint64_t fastest);

  // Above 0.
  void SetFrequency(std::uint32_t hertz);
  void SetFraming(const SwdFraming& wanted);
  // Clocks between transfers.
  void SetIdleClocks(unsigned count);

  Ack Transfer(std::uint8_t request, std::uint32_t& data);
  // Drives `count` bits, or samples them into whole bytes, least significant first.
  void Drive(std::span<const std::uint8_t> bits, unsigned count);
  void Sample(PacketWriter& into, unsigned count);

  // Transfers of a word that were answered Ok.
  [[nodiscard]] std::uint64_t Words() const { return words; }
  [[nodiscard]] Nanoseconds Now() const { return clock.Now(); }
  void Wait(Nanoseconds span) { clock.Advance(span); }

 private:
  [[nodiscard]] Nanoseconds Clocks(std::uint64_t count) const { return count * kSecond / frequency; }
  void Reckon();

  SwdTarget& target;
  VirtualClock& clock;
  std::uint64_t fastestHertz;
  std::uint64_t frequency;
  SwdFraming framing;
  unsigned idleClocks = 0;
  Nanoseconds headTime = 0;  // request and acknowledgement; what is refused ends there
  Nanoseconds dataTime = 0;
  std::uint64_t words = 0;
};

}  // namespace simulator
