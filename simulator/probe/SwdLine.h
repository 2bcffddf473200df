#pragma once

#include <cstdint>
#include <optional>

#include "AccessPorts.h"
#include "SwDp.h"

namespace simulator {

// How a probe frames transfers.
struct SwdFraming {
  unsigned turnaround = 1;       // clocks
  bool alwaysDataPhase = false;  // after WAIT and FAULT, too
};

// The target's end of the serial wire: which protocol it listens to, and the bits of a transfer.
//
//   Jtag --50 ones, E79E--> Locked --50 ones--> Reset --2 zeros--> Idle --start bit--> a transfer --> Idle
//   Dormant --alert, 4 zeros, 1A--> Locked                         any --50 ones--> Reset
//   Jtag --BA BB BB 33--> Dormant      after 50 ones: E73C --> Jtag, E3BC --> Dormant
//
// A request that is not well-formed, or is not answered, locks the line until the next line reset. Power
// comes up in Jtag. Numbers are sent least significant bit first.
class SwdLine {
 public:
  // Both must outlive this object.
  SwdLine(AccessPorts& accessPorts, SwDp& port) : ports(accessPorts), debugPort(port) {}

  // One clock in which the probe drives the line, or does not. The line's level: pulled up when nobody
  // drives.
  bool Clock(std::optional<bool> driven);
  // All clocks of one transfer. `data` is sent or received; only an answer of Ok touches it.
  Ack Transfer(std::uint8_t request, std::uint32_t& data, const SwdFraming& framing);

 private:
  enum class Phase : std::uint8_t {
    Jtag,
    Dormant,
    Activating,  // behind the selection alert
    Locked,
    Reset,
    Idle,
    Request,
    Sending,    // turnaround, acknowledgement, the data of a read, turnaround
    Receiving,  // the data of a write
  };

  // False without power, and when the debug port has just been restarted.
  bool IsListening();
  bool Send();
  void Remember(bool level);
  void Follow(bool level);
  // In serial wire: a selection of another protocol and a line reset go before whatever is under way.
  void FollowWire(bool level);
  void FollowTransfer(bool level);
  [[nodiscard]] bool IsSelection(std::uint16_t code) const;
  void Begin(Phase next, unsigned clocks);
  // Adds a level to `bits`; true when it is the phase's last.
  bool Collect(bool level);
  void Answer();
  void TakeData();

  AccessPorts& ports;
  SwDp& debugPort;
  Phase phase = Phase::Jtag;
  unsigned clocks = 0;           // of the phase
  unsigned clocksLeft = 0;       // of them
  std::uint64_t bits = 0;        // of the phase: received so far, or still to be sent
  std::uint8_t request = 0;      // the transfer's
  bool dataFollows = false;      // from the probe
  bool dataIsWelcome = false;    // the request was answered Ok
  unsigned ones = 0;             // in a row
  std::uint64_t recent[2] = {};  // the last 128 levels, the oldest in bit 0 of the first
};

}  // namespace simulator
