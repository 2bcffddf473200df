#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "DapTransfers.h"
#include "Packet.h"
#include "ProbeSpeed.h"
#include "SwdTarget.h"
#include "SwdWire.h"

namespace simulator {

// The firmware of a CMSIS-DAP debug probe, protocol 2.1, with a serial wire and nothing else: JTAG is
// refused, trace and serial ports are unknown commands. Packets go in and come out in the order of their
// execution.
class CmsisDapFirmware {
 public:
  // `attached` must outlive this object.
  CmsisDapFirmware(SwdTarget& attached, const ProbeSpeed& probeSpeed);

  // The answer, like the request never longer than a packet: it begins with the request's first byte, or is
  // the single byte 0xFF where that is no command of ours. DAP_TransferAbort is nothing on its own: a
  // transfer that is under way is told by `abortAt` when it comes.
  std::vector<std::uint8_t> Execute(std::span<const std::uint8_t> request,
                                    Nanoseconds abortAt = kNeverAborted);

  // 32-bit transfers on the wire so far.
  [[nodiscard]] std::uint64_t Words() const { return wire.Words(); }

 private:
  // The commands return false when they are none of ours, or ended in the middle: what follows them in a list
  // cannot be found.
  bool Run(PacketReader& in, PacketWriter& out);
  std::optional<std::uint8_t> RunSimple(std::uint8_t command, PacketReader& in);
  void RunList(PacketReader& in, PacketWriter& out);
  bool Info(PacketReader& in, PacketWriter& out);
  std::uint8_t Connect(std::uint8_t port);
  void Disconnect();
  bool ConfigureTransfers(PacketReader& in);
  bool WriteAbort(PacketReader& in);
  void SetPins(PacketReader& in);
  [[nodiscard]] std::uint8_t Pins() const;
  bool DriveSequence(PacketReader& in);
  bool RunSwdSequences(PacketReader& in, PacketWriter& out);

  SwdTarget& target;
  ProbeSpeed speed;
  SwdWire wire;
  DapTransfers transfers{wire};
  bool isConnected = false;
  bool clockPin = true;
  bool dataPin = true;
};

}  // namespace simulator
