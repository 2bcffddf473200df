#pragma once

#include "tests/simulator/TestChip.h"

namespace simulator {

// The chip that OpenOCD meets: the small one, with sectors as in the worked example.
inline ChipDescription ExampleChip() {
  ChipDescription chip = SmallChip();
  chip.sectorSize = 2048;
  chip.mainSize = 256 * chip.sectorSize;
  return chip;
}

}  // namespace simulator
