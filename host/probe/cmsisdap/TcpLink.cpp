#include "host/probe/cmsisdap/TcpLink.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "host/probe/ProbeError.h"

namespace host {

std::optional<Packet> TcpLink::Receive(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    if (auto answer = CutAnswer()) return answer;
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    std::array<std::uint8_t, 2 * kLargestFramed> piece{};
    const std::size_t count = ReceiveSome(piece, std::max(left, std::chrono::milliseconds(0)));
    if (count == 0) return std::nullopt;
    frames.Add(std::span(piece).first(count));
  }
}

std::optional<Packet> TcpLink::CutAnswer() {
  try {
    auto answer = frames.Next();
    hasAnswered = hasAnswered || answer;
    return answer;
  } catch (const std::runtime_error& error) {
    throw ProbeError(ProbeError::Kind::BadAnswer,
                     fmt::format("what answers over TCP is no CMSIS-DAP probe ({}): see to the address and "
                                 "the port",
                                 error.what()));
  }
}

// Probes in the network have one client at a time, and let another one go.
std::size_t TcpLink::ReceiveSome(std::span<std::uint8_t> into, std::chrono::milliseconds timeout) {
  try {
    return stream.Receive(into, timeout);
  } catch (const ProbeError& error) {
    if (hasAnswered || error.Which() != ProbeError::Kind::Unplugged) throw;
    throw ProbeError(ProbeError::Kind::NoProbe,
                     "the debug probe ended the connection without an answer: another client may have it");
  }
}

}  // namespace host
