#pragma once

#include <cstdint>
#include <limits>

#include "Packet.h"
#include "SwdWire.h"

namespace simulator {

constexpr Nanoseconds kNeverAborted = std::numeric_limits<Nanoseconds>::max();

// The two commands that move words: DAP_Transfer, a list of single accesses, and DAP_TransferBlock, one
// register over and over. WAIT is tried again here. Reads of an access port come one transfer late on the
// wire; that is hidden: they are pipelined, and a block of n makes exactly n accesses. The last write is
// followed by a read of RDBUFF, so that its failure is not left to the next packet.
//
// Both read what follows the command's id, and answer with the number of transfers done and the last
// acknowledgement (0 when there was none). What does not fit a packet is not begun.
class DapTransfers {
 public:
  struct Settings {
    std::uint16_t waitRetries = 100;
    std::uint16_t matchRetries = 0;
  };

  // `toTarget` must outlive this object.
  explicit DapTransfers(SwdWire& toTarget) : wire(toTarget) {}

  void Configure(const Settings& wanted) { settings = wanted; }
  // Nothing is tried again, and no further transfer begun, from this moment on.
  void AbortAt(Nanoseconds moment) { abortAt = moment; }

  // False when the request ended in the middle.
  bool Transfer(PacketReader& in, PacketWriter& out);
  bool TransferBlock(PacketReader& in, PacketWriter& out);
  // One access, tried again.
  Ack Access(std::uint8_t request, std::uint32_t& data);

 private:
  class List;
  [[nodiscard]] bool IsAborted() const { return wire.Now() >= abortAt; }

  SwdWire& wire;
  Settings settings;
  std::uint32_t matchMask = 0;
  Nanoseconds abortAt = kNeverAborted;
};

}  // namespace simulator
