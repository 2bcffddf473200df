#pragma once

#include "../Chip.h"
#include "AccessPorts.h"
#include "SwDp.h"
#include "SwdLine.h"

namespace simulator {

// A chip as a probe sees it: two wires and a reset pin. Holds the state of its debug port, so it lives as
// long as the chip is powered, whichever probes come and go. `chip` must outlive it.
struct SwdTarget {
  explicit SwdTarget(Chip& attached, const PortLayout& layout = {})
      : chip(attached), ports(attached, layout) {}
  SwdTarget(const SwdTarget&) = delete;
  SwdTarget& operator=(const SwdTarget&) = delete;

  Chip& chip;
  AccessPorts ports;
  SwDp debugPort{ports, chip.Clock(), chip.AskedFaults()};
  SwdLine line{ports, debugPort};
};

}  // namespace simulator
