#pragma once

#include <functional>
#include <optional>
#include <utility>

#include "host/probe/simulated/SimulatedLink.h"

// The cable to a simulated probe, on which answers are changed or lost.
class SpoiledLink final : public host::PacketLink {
 public:
  // Sees every answer, and may change it; false: it is lost.
  using Spoiler = std::function<bool(host::Packet& answer)>;

  SpoiledLink(simulator::SwdTarget& target, const Spoiler& itsSpoiler)
      : link(target, host::NamedSpeed("hs"), host::Pace::AsFastAsPossible), spoil(itsSpoiler) {}

  [[nodiscard]] std::size_t PacketSize() const override { return link.PacketSize(); }
  void Send(std::span<const std::uint8_t> packet) override { link.Send(packet); }
  std::optional<host::Packet> Receive(std::chrono::milliseconds timeout) override {
    auto answer = link.Receive(timeout);
    if (answer && spoil && !spoil(*answer)) return std::nullopt;
    return answer;
  }
  [[nodiscard]] std::uint64_t NowNs() const override { return link.NowNs(); }
  void Sleep(std::uint32_t milliseconds) override { link.Sleep(milliseconds); }

 private:
  host::SimulatedLink link;
  const Spoiler& spoil;
};
