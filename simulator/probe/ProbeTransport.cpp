#include "ProbeTransport.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace simulator {

void ProbeTransport::Send(std::span<const std::uint8_t> packet) {
  RequirePlugged();
  if (packet.size() > speed.packetSize)
    throw std::runtime_error("A packet of " + std::to_string(packet.size()) + " bytes, the probe takes " +
                             std::to_string(speed.packetSize));
  const bool isAbort = !packet.empty() && packet[0] == kTransferAbort;
  if (!isAbort && IsFull())
    throw std::runtime_error("More packets in flight than the " + std::to_string(speed.packetCount) +
                             " that the probe takes");
  ++traffic.packets;
  const auto fault = target.chip.AskedFaults().NextPacket();
  if (fault == Faults::PacketFault::Unplugged) {
    isPlugged = false;
    RequirePlugged();
  }
  const Nanoseconds arrival = hostNow + speed.latency;
  if (isAbort) {
    aborts.push_back(arrival);
    return;
  }
  requests.push_back({.arrival = arrival, .bytes = {packet.begin(), packet.end()}, .fault = fault});
  if (speed.sendsWholeReports) requests.back().bytes.resize(speed.packetSize);
  traffic.bytes += requests.back().bytes.size();
}

std::optional<std::vector<std::uint8_t>> ProbeTransport::Receive(Nanoseconds timeout) {
  RequirePlugged();
  for (auto released = Release(); answers.empty() && released; released = Release()) ExecuteNext(*released);
  if (answers.empty() || answers.front().arrival > hostNow + timeout) {
    hostNow += timeout;
    return std::nullopt;
  }
  const Packet answer = std::move(answers.front());
  answers.pop_front();
  if (answer.arrival > hostNow) ++traffic.waits;
  hostNow = std::max(hostNow, answer.arrival);
  traffic.bytes += answer.bytes.size();
  return answer.bytes;
}

ProbeTransport::Traffic ProbeTransport::Counted() const {
  Traffic counted = traffic;
  counted.words = firmware.Words();
  return counted;
}

// When the next request may be executed. Queued commands wait for a packet that is none.
std::optional<Nanoseconds> ProbeTransport::Release() const {
  for (const Packet& request : requests)
    if (request.bytes.empty() || request.bytes[0] != kQueueCommands) return request.arrival;
  return std::nullopt;
}

void ProbeTransport::ExecuteNext(Nanoseconds released) {
  const Packet request = std::move(requests.front());
  requests.pop_front();
  VirtualClock& clock = target.chip.Clock();
  const Nanoseconds start = std::max(released, clock.Now());
  clock.Advance(start - clock.Now());
  while (!aborts.empty() && aborts.front() <= start) aborts.pop_front();
  Packet answer;
  answer.bytes = firmware.Execute(request.bytes, aborts.empty() ? kNeverAborted : aborts.front());
  if (speed.sendsWholeReports) answer.bytes.resize(speed.packetSize);
  if (request.fault == Faults::PacketFault::Lost) return;
  if (request.fault == Faults::PacketFault::Short) answer.bytes.resize((answer.bytes.size() + 1) / 2);
  answer.arrival = clock.Now() + speed.latency;
  answers.push_back(std::move(answer));
}

void ProbeTransport::RequirePlugged() const {
  if (!isPlugged) throw std::runtime_error("The debug probe has been unplugged");
}

}  // namespace simulator
