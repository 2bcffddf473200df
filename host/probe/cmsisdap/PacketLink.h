#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <thread>
#include <vector>

namespace host {

using Packet = std::vector<std::uint8_t>;

// The cable to a CMSIS-DAP probe: packets there, and an answer to each, in order. Failures are ProbeError.
class PacketLink {
 public:
  PacketLink() = default;
  PacketLink(const PacketLink&) = delete;
  PacketLink& operator=(const PacketLink&) = delete;
  virtual ~PacketLink() = default;

  // The largest packet of the cable, and of the probe once that has told. Always enough to ask for it.
  [[nodiscard]] virtual std::size_t PacketSize() const = 0;
  // The probe's packets are of this size.
  virtual void SetPacketSize(std::size_t /*bytes*/) {}

  // Does not wait for the answer. Who sends keeps to the number of packets that the probe takes.
  virtual void Send(std::span<const std::uint8_t> packet) = 0;
  // The next answer, which may have zeros behind its end; nothing when none comes in this time.
  virtual std::optional<Packet> Receive(std::chrono::milliseconds timeout) = 0;

  // The clock by which the cable takes its time: a real one has the machine's.
  [[nodiscard]] virtual std::uint64_t NowNs() const {
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::nanoseconds(now).count());
  }
  virtual void Sleep(std::uint32_t milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
  }
};

}  // namespace host
