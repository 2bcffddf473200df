#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "host/probe/ProbeError.h"
#include "host/probe/cmsisdap/PacketLink.h"

namespace host {

// Commands of CMSIS-DAP, as far as they are used here. A packet begins with one, and so does its answer.
enum class DapCommand : std::uint8_t {
  Info = 0x00,
  Connect = 0x02,
  Disconnect = 0x03,
  TransferConfigure = 0x04,
  Transfer = 0x05,
  TransferBlock = 0x06,
  WriteAbort = 0x08,
  Pins = 0x10,
  Clock = 0x11,
  Sequence = 0x12,
  SwdConfigure = 0x13,
};

// A transfer's byte: the request as it goes over the wire, and the match.
inline constexpr std::uint8_t kPort = 1U << 0;  // an access port; else the debug port
inline constexpr std::uint8_t kRead = 1U << 1;
inline constexpr std::uint8_t kRegister = 0xC;  // bits 3-2 of the register's offset
inline constexpr std::uint8_t kMatchValue = 1U << 4;
inline constexpr std::uint8_t kMatchMask = 1U << 5;

// Puts a packet together; numbers are little-endian.
class PacketWriter {
 public:
  explicit PacketWriter(DapCommand command) {
    bytes.reserve(kUsualPacket);
    bytes.push_back(static_cast<std::uint8_t>(command));
  }

  PacketWriter& Byte(std::uint32_t value) { return Number(value, 1); }
  PacketWriter& Half(std::uint32_t value) { return Number(value, 2); }
  PacketWriter& Word(std::uint32_t value) { return Number(value, 4); }
  PacketWriter& Bytes(std::span<const std::uint8_t> some) {
    bytes.insert(bytes.end(), some.begin(), some.end());
    return *this;
  }
  // Replaces a byte that is there.
  void Set(std::size_t position, std::uint8_t value) { bytes[position] = value; }
  [[nodiscard]] const Packet& Written() const { return bytes; }

 private:
  PacketWriter& Number(std::uint32_t value, unsigned length) {
    for (unsigned i = 0; i < length; ++i) bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    return *this;
  }

  static constexpr std::size_t kUsualPacket = 512;

  Packet bytes;
};

// Takes an answer apart from its front. Fails with BadAnswer behind its end.
class AnswerReader {
 public:
  explicit AnswerReader(std::span<const std::uint8_t> answer) : rest(answer) {}

  std::uint8_t Byte() { return static_cast<std::uint8_t>(Number(1)); }
  std::uint16_t Half() { return static_cast<std::uint16_t>(Number(2)); }
  std::uint32_t Word() { return Number(4); }
  std::span<const std::uint8_t> Bytes(std::size_t length) {
    if (length > rest.size())
      throw ProbeError(ProbeError::Kind::BadAnswer,
                       "the debug probe's answer is cut short: unplug the probe and plug it in again");
    const auto taken = rest.first(length);
    rest = rest.subspan(length);
    return taken;
  }

 private:
  std::uint32_t Number(unsigned length) {
    std::uint32_t value = 0;
    unsigned shift = 0;
    for (const std::uint8_t byte : Bytes(length)) {
      value |= std::uint32_t{byte} << shift;
      shift += 8;
    }
    return value;
  }

  std::span<const std::uint8_t> rest;
};

}  // namespace host
