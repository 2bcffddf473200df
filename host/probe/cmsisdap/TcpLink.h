#pragma once

#include "host/probe/TcpStream.h"
#include "host/probe/cmsisdap/PacketLink.h"
#include "host/probe/cmsisdap/TcpFrames.h"

namespace host {

// The cable to a probe in the network.
class TcpLink final : public PacketLink {
 public:
  explicit TcpLink(const TcpAddress& address) : stream(address) {}

  [[nodiscard]] std::size_t PacketSize() const override { return kLargestFramed; }
  void Send(std::span<const std::uint8_t> packet) override {
    stream.Send(Framed(packet, FrameKind::Request));
  }
  std::optional<Packet> Receive(std::chrono::milliseconds timeout) override;

 private:
  // The next whole answer of what has come.
  std::optional<Packet> CutAnswer();
  std::size_t ReceiveSome(std::span<std::uint8_t> into, std::chrono::milliseconds timeout);

  TcpStream stream;
  FrameReader frames{FrameKind::Answer};
  bool hasAnswered = false;
};

}  // namespace host
