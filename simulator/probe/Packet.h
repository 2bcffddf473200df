#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace simulator {

// Commands of CMSIS-DAP.
enum Command : std::uint8_t {
  kInfo = 0x00,
  kHostStatus = 0x01,
  kConnect = 0x02,
  kDisconnect = 0x03,
  kTransferConfigure = 0x04,
  kTransfer = 0x05,
  kTransferBlock = 0x06,
  kTransferAbort = 0x07,
  kWriteAbort = 0x08,
  kDelay = 0x09,
  kResetTarget = 0x0A,
  kPins = 0x10,
  kClock = 0x11,
  kSequence = 0x12,
  kSwdConfigure = 0x13,
  kJtagSequence = 0x14,
  kJtagConfigure = 0x15,
  kJtagIdCode = 0x16,
  kSwdSequence = 0x1D,
  kQueueCommands = 0x7E,
  kExecuteCommands = 0x7F,
  kInvalid = 0xFF,
};

// Takes a packet apart from its front; numbers are little-endian. Behind the packet's end all is zero, and
// IsShort() from then on.
class PacketReader {
 public:
  explicit PacketReader(std::span<const std::uint8_t> packet) : rest(packet) {}

  [[nodiscard]] std::size_t Left() const { return rest.size(); }
  [[nodiscard]] bool IsShort() const { return isShort; }

  std::uint8_t Byte() { return static_cast<std::uint8_t>(Number(1)); }
  std::uint16_t Half() { return static_cast<std::uint16_t>(Number(2)); }
  std::uint32_t Word() { return Number(4); }
  // What is left of `length` bytes.
  std::span<const std::uint8_t> Bytes(std::size_t length) {
    isShort = isShort || length > rest.size();
    const auto taken = rest.first(std::min(length, rest.size()));
    rest = rest.subspan(taken.size());
    return taken;
  }

 private:
  std::uint32_t Number(std::size_t length) {
    std::uint32_t value = 0;
    unsigned shift = 0;
    for (const std::uint8_t byte : Bytes(length)) {
      value |= std::uint32_t{byte} << shift;
      shift += 8;
    }
    return value;
  }

  std::span<const std::uint8_t> rest;
  bool isShort = false;
};

// Puts a packet together, little-endian. Who writes makes sure of the room first.
class PacketWriter {
 public:
  explicit PacketWriter(std::size_t packetSize) : limit(packetSize) { bytes.reserve(packetSize); }

  [[nodiscard]] std::size_t Room() const { return limit - bytes.size(); }
  [[nodiscard]] std::size_t Size() const { return bytes.size(); }

  void Byte(std::uint8_t value) { bytes.push_back(value); }
  void Half(std::uint16_t value) { Number(value, 2); }
  void Word(std::uint32_t value) { Number(value, 4); }
  // Replaces a byte that is there.
  void Set(std::size_t position, std::uint8_t value) { bytes[position] = value; }
  std::vector<std::uint8_t> Finish() { return std::move(bytes); }

 private:
  void Number(std::uint32_t value, unsigned length) {
    for (unsigned i = 0; i < length; ++i) bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }

  std::size_t limit;
  std::vector<std::uint8_t> bytes;
};

}  // namespace simulator
