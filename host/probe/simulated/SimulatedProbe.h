#pragma once

#include <string_view>

#include "host/probe/AdiProbe.h"
#include "host/probe/cmsisdap/CmsisDap.h"
#include "host/probe/simulated/SimulatedBoard.h"

namespace host {

// A simulated probe with a simulated chip at its end. All but the packets' cable is what drives a real one.
// Its clock is virtual: it counts what the same accesses would take on a board.
//
// The board comes first: it is there before the probe speaks to it, and until the probe has taken leave.
class SimulatedProbe final : public SimulatedBoard, public AdiProbe {
 public:
  // `speed` names the kind of probe that is modelled. Throws as OpenProbe does.
  SimulatedProbe(const DeviceDescription& device, const SimulatedChipOptions& options,
                 std::string_view speed = "hs", ReadAhead readAhead = ReadAhead::Yes,
                 const PacketOptions& packets = {});

  // With what was on its way to the chip when a load ended.
  [[nodiscard]] ChipView* View() override {
    AwaitSent();
    return this;
  }
};

}  // namespace host
