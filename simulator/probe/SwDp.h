#pragma once

#include <cstdint>

#include "../Faults.h"
#include "../VirtualClock.h"
#include "AccessPorts.h"

namespace simulator {

// The target's answer to a request, the three bits as they are read. None: nobody drives the line, which is
// pulled up.
enum class Ack : std::uint8_t { Ok = 1, Wait = 2, Fault = 4, None = 7 };

// A request as it follows the start bit: bit 0 access port instead of debug port, bit 1 read, bits 3-2 the
// register's address bits 3-2.
constexpr std::uint8_t kPortRequest = 1;
constexpr std::uint8_t kReadRequest = 2;
constexpr std::uint8_t kRequestAddress = 0xC;
constexpr std::uint8_t kReadIdentification = kReadRequest | 0x0;
constexpr std::uint8_t kReadBuffer = kReadRequest | 0xC;

// The serial-wire debug port, of the minimal kind (no pushed operations, no transaction counter): its
// registers, what it answers, and the one access to a port that is under way.
//
// - After a line reset nothing but reading DPIDR is answered.
// - A port is reached when both power domains have been asked for and have come up.
// - A read of a port gives the result of the read before; the last result is in RDBUFF.
// - An access that fails sets STICKYERR. With a sticky bit set all is answered FAULT except reading DPIDR and
//   CTRL/STAT and writing ABORT, which clears it.
class SwDp {
 public:
  // All must outlive this object.
  SwDp(AccessPorts& accessPorts, const VirtualClock& chipClock, Faults& asked)
      : ports(accessPorts), clock(chipClock), faults(asked) {}

  void PowerOn();
  void LineReset() { identified = false; }

  // The answer to a request; None is a protocol error. After Ok, Read or Write must follow.
  Ack Judge(std::uint8_t request);
  std::uint32_t Read(std::uint8_t request);
  void Write(std::uint8_t request, std::uint32_t value);
  // The data of a write came with the wrong parity.
  void RefuseData() { dataError = true; }

  // With it, a data phase follows WAIT and FAULT, too.
  [[nodiscard]] bool DetectsOverruns() const;

 private:
  Ack JudgePortAccess(std::uint8_t request);
  std::uint32_t ReadPort(std::uint8_t address);
  [[nodiscard]] std::uint32_t Status() const;
  void WriteControl(std::uint32_t value);
  void Abort(std::uint32_t value);
  [[nodiscard]] bool HasSticky() const { return accessError || dataError || overrun; }
  [[nodiscard]] bool HasPower() const;
  [[nodiscard]] std::uint8_t PortNumber() const { return static_cast<std::uint8_t>(select >> 24); }
  [[nodiscard]] std::uint8_t PortOffset(std::uint8_t address) const {
    return static_cast<std::uint8_t>((select & 0xF0) | address);
  }

  AccessPorts& ports;
  const VirtualClock& clock;
  Faults& faults;
  bool identified = false;
  std::uint32_t control = 0;  // the writable bits of CTRL/STAT
  Nanoseconds powerAskedAt = 0;
  bool accessError = false;  // STICKYERR
  bool dataError = false;    // WDATAERR
  bool overrun = false;      // STICKYORUN
  bool readDone = false;     // READOK
  std::uint32_t select = 0;
  std::uint32_t buffer = 0;  // result of the last read of a port
  std::uint32_t sent = 0;    // what RESEND sends again
};

}  // namespace simulator
