#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "host/probe/cmsisdap/PacketLink.h"

namespace host {

// CMSIS-DAP's packets in a stream of bytes. Each has eight bytes before it: "DAP\0", the packet's length in
// two bytes, 1 for a request or 2 for an answer, 0. Numbers are little-endian.

constexpr std::uint16_t kTcpProbePort = 4441;
constexpr std::size_t kLargestFramed = 1024;  // bytes of a packet

enum class FrameKind : std::uint8_t { Request = 1, Answer = 2 };

// `packet` has at most kLargestFramed bytes.
std::vector<std::uint8_t> Framed(std::span<const std::uint8_t> packet, FrameKind kind);

// Cuts the packets of one kind out of what comes.
class FrameReader {
 public:
  explicit FrameReader(FrameKind kindToCome) : kind(kindToCome) {}

  void Add(std::span<const std::uint8_t> bytes) { rest.insert(rest.end(), bytes.begin(), bytes.end()); }
  // The next whole packet, if it is there. Throws std::runtime_error as soon as what has come cannot be a
  // packet of this kind; there is no way on from there.
  std::optional<Packet> Next();
  // Some of a packet is there, and its end is not.
  [[nodiscard]] bool IsInPacket() const { return !rest.empty(); }

 private:
  void RequireHeader() const;

  FrameKind kind;
  std::vector<std::uint8_t> rest;
};

}  // namespace host
