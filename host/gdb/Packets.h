#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/device/MemoryMap.h"

// How the remote protocol wraps what client and server say to each other: "$", the payload, "#" and two
// digits of checksum. In a payload, "}" announces a byte that would be mistaken for one of these signs.
namespace host::gdb {

// The longest payload that a client is told to send. Larger ones bring no speed.
inline constexpr std::size_t kPacketSize = 0x10000;

// What came from a client.
struct Received {
  enum class Kind {
    Packet,   // whole and sound
    Damaged,  // its checksum is wrong
    TooLong,  // dropped before its end
    Resend,   // the client did not understand the last answer
    Garbage,  // bytes outside of packets that mean nothing
  };
  Kind kind = Kind::Garbage;
  std::string payload = {};  // of a Packet
  bool operator==(const Received&) const = default;
};

// Finds the packets in a stream of bytes, however it is cut. A "$" begins a packet anew wherever it comes, so
// that a broken packet costs no more than itself.
class PacketReader {
 public:
  std::vector<Received> Take(std::string_view bytes);

 private:
  enum class State { Outside, Payload, Escape, FirstDigit, SecondDigit };
  void Take(char byte, std::vector<Received>& found);
  void Append(char byte);

  State state = State::Outside;
  std::string payload;
  std::uint8_t sum = 0;
  char firstDigit = 0;
  bool isTooLong = false;
  bool isGarbageTold = false;
};

// `payload` as it goes over the wire.
std::string Packet(std::string_view payload);
// Bytes as a part of a payload.
std::string Escaped(std::string_view bytes);
// The payload that says what went wrong. What the protocol gives a meaning is left out of the text.
std::string ErrorAnswer(std::string_view text);

std::string ToHex(std::string_view bytes);
std::optional<std::string> FromHex(std::string_view digits);
// "4c000000,800": an address and a length. Throws InputError for what is no such thing or ends beyond 32
// bits.
AddressRange RequireRange(std::string_view text);

inline std::span<const std::uint8_t> AsBytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}
inline std::string_view AsText(std::span<const std::uint8_t> bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

}  // namespace host::gdb
