#include "host/probe/cmsisdap/PacketWindow.h"

#include <fmt/format.h>

#include <chrono>
#include <utility>

namespace host {

namespace {

using namespace std::chrono_literals;

// A target that answers WAIT keeps the probe busy for 65,536 tries: 0.2 s at 4 MHz, 0.9 s at 1 MHz.
constexpr auto kLongestAnswer = 3s;
constexpr auto kLookForCancel = 50ms;
constexpr auto kStaleAnswer = 100ms;  // one that was late follows the one that it was late for

constexpr int kMostStaleAnswers = 256;  // as many as any probe has in flight

constexpr std::uint8_t kUnknownCommand = 0xFF;

}  // namespace

void PacketWindow::Send(const PacketWriter& packet, Taker taker) {
  try {
    access.RequireGoingOn();
    if (outOfStep) DrawStaleAnswers();
    while (pending.size() >= limit) TakeOne();
    link.Send(packet.Written());
  } catch (...) {
    Drop();
    throw;
  }
  if (pending.empty()) ++traffic.roundTrips;
  ++traffic.packets;
  traffic.bytes += packet.Written().size();
  pending.push_back({packet.Written()[0], std::move(taker)});
}

void PacketWindow::Finish(std::size_t left) {
  while (pending.size() > left) TakeOne();
}

void PacketWindow::TakeOne() {
  try {
    const Packet answer = Await();
    const Pending asked = std::move(pending.front());
    pending.pop_front();
    AnswerReader reader(answer);
    const std::uint8_t command = reader.Byte();
    if (command == kUnknownCommand && asked.command != kUnknownCommand)
      throw ProbeError(ProbeError::Kind::BadAnswer,
                       fmt::format("the debug probe does not know CMSIS-DAP's command 0x{:02x}: "
                                   "update the probe's firmware",
                                   asked.command));
    if (command != asked.command)
      throw ProbeError(ProbeError::Kind::BadAnswer,
                       fmt::format("the debug probe answered 0x{:02x} with 0x{:02x}: "
                                   "unplug the probe and plug it in again",
                                   asked.command, command));
    asked.take(reader);
  } catch (...) {
    Drop();
    throw;
  }
}

Packet PacketWindow::Await() {
  for (auto waited = 0ms; waited < kLongestAnswer; waited += kLookForCancel) {
    if (auto answer = link.Receive(kLookForCancel)) {
      traffic.bytes += answer->size();
      return std::move(*answer);
    }
    if (access.IsCancelled()) break;
  }
  outOfStep = true;
  access.RequireGoingOn();
  throw ProbeError(ProbeError::Kind::TimedOut,
                   "the debug probe does not answer: unplug it and plug it in again");
}

// Leaves nothing on its way. What cannot be drawn now is drawn before the next packet.
void PacketWindow::Drop() noexcept {
  for (; !pending.empty(); pending.pop_front()) {
    try {
      if (!link.Receive(outOfStep ? kStaleAnswer : kLongestAnswer)) outOfStep = true;
    } catch (...) {
      outOfStep = true;
    }
  }
}

void PacketWindow::DrawStaleAnswers() {
  for (int drawn = 0; drawn < kMostStaleAnswers && link.Receive(kStaleAnswer); ++drawn) {
  }
  outOfStep = false;
}

}  // namespace host
