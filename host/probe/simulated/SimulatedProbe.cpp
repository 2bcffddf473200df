#include "host/probe/simulated/SimulatedProbe.h"

#include <algorithm>

#include "host/probe/simulated/SimulatedLink.h"

namespace host {

namespace {

std::unique_ptr<ApAccess> PlugIn(SimulatedBoard& board, std::string_view speedName, bool inRealTime,
                                 const PacketOptions& packets) {
  const Pace pace = inRealTime ? Pace::RealTime : Pace::AsFastAsPossible;
  const simulator::ProbeSpeed speed = NamedSpeed(speedName);
  PacketOptions reached = packets;  // so that the clock that was asked for is the one there is
  reached.wireHz = std::min(packets.wireHz, static_cast<std::uint32_t>(speed.wireHz));
  return OverPackets(std::make_unique<SimulatedLink>(board.Target(), speed, pace), reached, AccessPorts{});
}

}  // namespace

SimulatedProbe::SimulatedProbe(const DeviceDescription& device, const SimulatedChipOptions& options,
                               std::string_view speed, ReadAhead readAhead, const PacketOptions& packets)
    : SimulatedBoard(device, options),
      AdiProbe(PlugIn(*this, speed, options.inRealTime, packets), device.ports, readAhead) {}

}  // namespace host
