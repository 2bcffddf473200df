#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <vector>

#include "CmsisDapFirmware.h"
#include "ProbeSpeed.h"
#include "SwdTarget.h"

namespace simulator {

// A probe at the end of its cable, as the host sees it: packets there and back, and the host's own clock,
// which moves when the host waits or sleeps.
//
// A packet reaches the probe one latency after it was sent, is executed as soon as the probe has done those
// before, which takes the wire's time on the chip's clock, and its answer arrives one latency later. The host
// may send on meanwhile, up to the probe's packet count. Executing is put off until an answer is asked for,
// which no one can tell: the chip's clock is that of the probe, and stands still between packets.
class ProbeTransport {
 public:
  struct Traffic {
    std::uint64_t packets = 0;  // sent
    std::uint64_t waits = 0;    // answers that the host had to wait for
    std::uint64_t words = 0;    // 32-bit transfers on the wire, those of the debug port included
    std::uint64_t bytes = 0;    // both ways
  };

  // `attached` must outlive this object. The host's clock begins at the chip's present moment.
  ProbeTransport(SwdTarget& attached, const ProbeSpeed& probeSpeed)
      : target(attached),
        speed(probeSpeed),
        firmware(attached, probeSpeed),
        hostNow(attached.chip.Clock().Now()) {}

  [[nodiscard]] const ProbeSpeed& Speed() const { return speed; }

  // Throws std::runtime_error when the probe is unplugged, and for what no probe can take: a packet that is
  // too long, or one more than its packet count without having asked for an answer.
  void Send(std::span<const std::uint8_t> packet);
  // The next answer. Nothing when none comes in that time; it may still come later. Throws std::runtime_error
  // when the probe is unplugged.
  std::optional<std::vector<std::uint8_t>> Receive(Nanoseconds timeout);
  // One packet more is one too many, until an answer has been received.
  [[nodiscard]] bool IsFull() const { return requests.size() + answers.size() >= speed.packetCount; }
  // There is a packet to be answered, or an answer that has not been received. Queued commands alone are
  // none.
  [[nodiscard]] bool IsAnswerDue() const { return !answers.empty() || Release(); }
  void Sleep(std::uint32_t milliseconds) { hostNow += milliseconds * kMillisecond; }

  [[nodiscard]] Nanoseconds HostNow() const { return hostNow; }
  [[nodiscard]] Traffic Counted() const;

 private:
  struct Packet {
    Nanoseconds arrival = 0;
    std::vector<std::uint8_t> bytes;
    std::optional<Faults::PacketFault> fault;
  };

  [[nodiscard]] std::optional<Nanoseconds> Release() const;
  void ExecuteNext(Nanoseconds released);
  void RequirePlugged() const;

  SwdTarget& target;
  ProbeSpeed speed;
  CmsisDapFirmware firmware;
  Nanoseconds hostNow;
  std::deque<Packet> requests;
  std::deque<Packet> answers;
  std::deque<Nanoseconds> aborts;  // when they arrive
  bool isPlugged = true;
  Traffic traffic;
};

}  // namespace simulator
