#pragma once

#include <chrono>
#include <optional>
#include <string_view>

#include "host/probe/cmsisdap/PacketLink.h"
#include "simulator/probe/ProbeTransport.h"

namespace host {

// Whether what is modelled takes its time.
enum class Pace { AsFastAsPossible, RealTime };

// The cable to a simulated probe, in that probe's time.
class SimulatedLink final : public PacketLink {
 public:
  // `target` must outlive this object.
  SimulatedLink(simulator::SwdTarget& target, const simulator::ProbeSpeed& speed, Pace pace);

  [[nodiscard]] std::size_t PacketSize() const override { return transport.Speed().packetSize; }
  void Send(std::span<const std::uint8_t> packet) override;
  std::optional<Packet> Receive(std::chrono::milliseconds timeout) override;
  [[nodiscard]] std::uint64_t NowNs() const override { return transport.HostNow(); }
  void Sleep(std::uint32_t milliseconds) override;

  // One packet more is one too many, until an answer has been received.
  [[nodiscard]] bool IsFull() const { return transport.IsFull(); }
  // The probe has something to do that it answers, or has answered.
  [[nodiscard]] bool IsAnswerDue() const { return transport.IsAnswerDue(); }

 private:
  void KeepPace();

  simulator::ProbeTransport transport;
  std::optional<std::chrono::steady_clock::time_point> realStart;  // of the modelled time's 0
};

// The kind of probe of that name. Throws InputError when there is none.
simulator::ProbeSpeed NamedSpeed(std::string_view name);

}  // namespace host
