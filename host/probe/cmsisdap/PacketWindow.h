#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>

#include "host/probe/ApAccess.h"
#include "host/probe/cmsisdap/DapPacket.h"
#include "host/probe/cmsisdap/PacketLink.h"

namespace host {

// Packets on their way to a probe, as many at a time as it takes. Their answers come in the same order, each
// to the function that was given with its packet.
//
// When an answer is wrong, or its function throws, the answers still to come are drawn and dropped, and then
// the failure is thrown: no later operation finds an answer that was not meant for it.
class PacketWindow {
 public:
  using Taker = std::function<void(AnswerReader& answer)>;  // what follows the command

  // Both must outlive this object. `owner` says when to give up.
  PacketWindow(PacketLink& cable, const ApAccess& owner) : link(cable), access(owner) {}

  void SetLimit(unsigned packets) { limit = packets; }

  // Takes the first answers where the window is full.
  void Send(const PacketWriter& packet, Taker taker);
  // Takes the answers that are owed, but for the last `left`.
  void Finish(std::size_t left = 0);
  // Draws the answers that are owed, unseen.
  void Drop() noexcept;

  [[nodiscard]] const Traffic& Counted() const { return traffic; }

 private:
  struct Pending {
    std::uint8_t command = 0;
    Taker take;
  };

  void TakeOne();
  Packet Await();
  void DrawStaleAnswers();

  PacketLink& link;
  const ApAccess& access;
  unsigned limit = 1;
  std::deque<Pending> pending;
  bool outOfStep = false;  // answers may still come that nobody waits for
  Traffic traffic;
};

}  // namespace host
