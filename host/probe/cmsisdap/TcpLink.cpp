#include "host/probe/cmsisdap/TcpLink.h"

#include <algorithm>
#include <array>

#include "host/probe/ProbeError.h"

namespace host {

namespace {

constexpr std::array<std::uint8_t, 4> kSignature = {'D', 'A', 'P', 0};
constexpr std::size_t kHeader = 8;
constexpr std::uint8_t kRequest = 1;
constexpr std::uint8_t kAnswer = 2;

}  // namespace

void TcpLink::Send(std::span<const std::uint8_t> packet) {
  std::vector<std::uint8_t> framed(kSignature.begin(), kSignature.end());
  framed.push_back(static_cast<std::uint8_t>(packet.size()));
  framed.push_back(static_cast<std::uint8_t>(packet.size() >> 8));
  framed.push_back(kRequest);
  framed.push_back(0);
  framed.insert(framed.end(), packet.begin(), packet.end());
  stream.Send(framed);
}

std::optional<Packet> TcpLink::Receive(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    if (auto answer = CutAnswer()) return answer;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    std::array<std::uint8_t, kHeader + kLargestPacket> piece{};
    const std::size_t count = stream.Receive(piece, std::max(left, std::chrono::milliseconds(0)));
    if (count == 0) return std::nullopt;
    received.insert(received.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(count));
  }
}

std::optional<Packet> TcpLink::CutAnswer() {
  if (received.size() < kHeader) return std::nullopt;
  const std::size_t length = received[4] | std::size_t{received[5]} << 8;
  if (!std::equal(kSignature.begin(), kSignature.end(), received.begin()) || received[6] != kAnswer ||
      length > kLargestPacket)
    throw ProbeError(ProbeError::Kind::BadAnswer,
                     "what answers over TCP is no CMSIS-DAP probe: see to the address and the port");
  if (received.size() < kHeader + length) return std::nullopt;
  const auto begin = received.begin() + kHeader;
  const auto end = begin + static_cast<std::ptrdiff_t>(length);
  Packet answer(begin, end);
  received.erase(received.begin(), end);
  return answer;
}

}  // namespace host
