#include "host/probe/cmsisdap/TcpFrames.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <stdexcept>

namespace host {

namespace {

constexpr std::array<std::uint8_t, 4> kSignature = {'D', 'A', 'P', 0};
constexpr std::size_t kHeader = 8;

}  // namespace

std::vector<std::uint8_t> Framed(std::span<const std::uint8_t> packet, FrameKind kind) {
  std::vector<std::uint8_t> framed(kSignature.begin(), kSignature.end());
  framed.push_back(static_cast<std::uint8_t>(packet.size()));
  framed.push_back(static_cast<std::uint8_t>(packet.size() >> 8));
  framed.push_back(static_cast<std::uint8_t>(kind));
  framed.push_back(0);
  framed.insert(framed.end(), packet.begin(), packet.end());
  return framed;
}

std::optional<Packet> FrameReader::Next() {
  RequireHeader();
  if (rest.size() < kHeader) return std::nullopt;
  const std::size_t length = rest[4] | std::size_t{rest[5]} << 8;
  if (length > kLargestFramed)
    throw std::runtime_error(
        fmt::format("a packet of {} bytes, where {} is the most there can be", length, kLargestFramed));
  if (rest.size() < kHeader + length) return std::nullopt;
  const auto begin = rest.begin() + kHeader;
  const auto end = begin + static_cast<std::ptrdiff_t>(length);
  Packet packet(begin, end);
  rest.erase(rest.begin(), end);
  return packet;
}

// As much of it as is there.
void FrameReader::RequireHeader() const {
  const auto signature = std::span(rest).first(std::min(rest.size(), kSignature.size()));
  if (!std::equal(signature.begin(), signature.end(), kSignature.begin()))
    throw std::runtime_error(fmt::format("{:02x} is no beginning of a packet", fmt::join(signature, " ")));
  if (rest.size() > 6 && rest[6] != static_cast<std::uint8_t>(kind))
    throw std::runtime_error(fmt::format("a packet of kind {}, where {} is one to come", rest[6],
                                         static_cast<std::uint8_t>(kind)));
}

}  // namespace host
