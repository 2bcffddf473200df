#include "host/probe/simulated/SimulatedProbe.h"

#include <fmt/format.h>

#include "host/device/InputError.h"
#include "host/probe/simulated/SimulatedLink.h"
#include "simulator/probe/ProbeSpeed.h"

namespace host {

namespace {

std::unique_ptr<ApAccess> PlugIn(SimulatedBoard& board, std::string_view speedName, bool inRealTime,
                                 const PacketOptions& packets) {
  const auto speed = simulator::FindProbeSpeed(speedName);
  if (!speed)
    throw InputError(
        fmt::format("there is no probe \"sim:{}\": sim:hs, sim:fs and sim:hid are known", speedName));
  const Pace pace = inRealTime ? Pace::RealTime : Pace::AsFastAsPossible;
  return OverPackets(std::make_unique<SimulatedLink>(board.Target(), *speed, pace), packets, AccessPorts{});
}

}  // namespace

SimulatedProbe::SimulatedProbe(const DeviceDescription& device, const SimulatedChipOptions& options,
                               std::string_view speed, ReadAhead readAhead, const PacketOptions& packets)
    : SimulatedBoard(device, options),
      AdiProbe(PlugIn(*this, speed, options.inRealTime, packets), device.ports, readAhead) {}

}  // namespace host
