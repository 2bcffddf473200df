#include "host/gdb/Packets.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "host/device/InputError.h"
#include "host/device/Text.h"

namespace host::gdb {

namespace {

constexpr char kEscape = '}';
constexpr char kEscapeMask = 0x20;
constexpr std::string_view kSigns = "#$*}";  // "*" announces a repetition, in answers only
constexpr char kInterrupt = 0x03;            // the user's Ctrl-C; there is no running program to stop
constexpr std::size_t kMostErrorText = 1000;

std::optional<std::uint64_t> ParseHex(std::string_view digits) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number, 16);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  return number;
}

}  // namespace

std::vector<Received> PacketReader::Take(std::string_view bytes) {
  std::vector<Received> found;
  for (const char byte : bytes) Take(byte, found);
  return found;
}

void PacketReader::Take(char byte, std::vector<Received>& found) {
  if (byte == '$') {
    state = State::Payload;
    payload.clear();
    sum = 0;
    isTooLong = isGarbageTold = false;
    return;
  }
  switch (state) {
    case State::Outside:
      if (byte == '-') {
        found.push_back({Received::Kind::Resend});
      } else if (byte != '+' && byte != kInterrupt && !isGarbageTold) {
        isGarbageTold = true;
        found.push_back({Received::Kind::Garbage});
      }
      return;
    case State::Payload:
    case State::Escape:
      if (byte == '#') {
        state = State::FirstDigit;
        return;
      }
      sum = static_cast<std::uint8_t>(sum + static_cast<std::uint8_t>(byte));
      if (state == State::Escape) {
        Append(static_cast<char>(byte ^ kEscapeMask));
        state = State::Payload;
      } else if (byte == kEscape) {
        state = State::Escape;
      } else {
        Append(byte);
      }
      return;
    case State::FirstDigit:
      firstDigit = byte;
      state = State::SecondDigit;
      return;
    case State::SecondDigit:
      state = State::Outside;
      const char digits[] = {firstDigit, byte};
      const bool isSound = ParseHex({digits, 2}) == sum;
      found.push_back({isTooLong ? Received::Kind::TooLong
                       : isSound ? Received::Kind::Packet
                                 : Received::Kind::Damaged});
      if (isSound && !isTooLong) found.back().payload = std::move(payload);
      payload.clear();
      return;
  }
}

void PacketReader::Append(char byte) {
  isTooLong = isTooLong || payload.size() >= kPacketSize;
  if (!isTooLong) payload += byte;
}

std::string Packet(std::string_view payload) {
  std::uint8_t sum = 0;
  for (const char byte : payload) sum = static_cast<std::uint8_t>(sum + static_cast<std::uint8_t>(byte));
  return fmt::format("${}#{:02x}", payload, sum);
}

std::string Escaped(std::string_view bytes) {
  std::string escaped;
  for (const char byte : bytes) {
    const bool isSign = kSigns.find(byte) != std::string_view::npos;
    if (isSign) escaped += kEscape;
    escaped += isSign ? static_cast<char>(byte ^ kEscapeMask) : byte;
  }
  return escaped;
}

std::string ErrorAnswer(std::string_view text) {
  std::string answer = "E.";
  for (const char c : text.substr(0, kMostErrorText)) {
    const bool isPlain = c >= ' ' && c <= '~' && kSigns.find(c) == std::string_view::npos;
    answer += isPlain ? c : ' ';
  }
  return answer;
}

std::string ToHex(std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string digits;
  digits.reserve(bytes.size() * 2);
  for (const std::uint8_t byte : AsBytes(bytes)) {
    digits += kDigits[byte >> 4];
    digits += kDigits[byte & 0xF];
  }
  return digits;
}

std::optional<std::string> FromHex(std::string_view digits) {
  if (digits.size() % 2 != 0 || !IsHexDigits(digits)) return std::nullopt;
  std::string bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2)
    bytes += static_cast<char>(*ParseHex(digits.substr(i, 2)));
  return bytes;
}

AddressRange RequireRange(std::string_view text) {
  constexpr std::uint64_t kEnd = std::uint64_t{1} << 32;
  constexpr std::size_t kMostShown = 40;
  const std::size_t comma = text.find(',');
  const auto address = ParseHex(text.substr(0, comma));
  const auto length = comma == std::string_view::npos ? std::nullopt : ParseHex(text.substr(comma + 1));
  if (!address || !length || *address >= kEnd || *length >= kEnd || *length > kEnd - *address)
    throw InputError(fmt::format("\"{}\" is no address and length", text.substr(0, kMostShown)));
  return {static_cast<std::uint32_t>(*address), static_cast<std::uint32_t>(*length)};
}

}  // namespace host::gdb
