#pragma once

#include <vector>

#include "host/probe/TcpStream.h"
#include "host/probe/cmsisdap/PacketLink.h"

namespace host {

// The cable to a probe in the network. Each packet has eight bytes before it: "DAP\0", the packet's length in
// two bytes, 1 for a request or 2 for an answer, 0.
class TcpLink final : public PacketLink {
 public:
  static constexpr std::uint16_t kUsualPort = 4441;

  explicit TcpLink(const TcpAddress& address) : stream(address) {}

  [[nodiscard]] std::size_t PacketSize() const override { return kLargestPacket; }
  void Send(std::span<const std::uint8_t> packet) override;
  std::optional<Packet> Receive(std::chrono::milliseconds timeout) override;

 private:
  static constexpr std::size_t kLargestPacket = 1024;

  // The next whole answer of what has come.
  std::optional<Packet> CutAnswer();

  TcpStream stream;
  std::vector<std::uint8_t> received;  // and not handed out yet
};

}  // namespace host
