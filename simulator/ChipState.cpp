#include "ChipState.h"

namespace simulator {

ChipState BlankState(const ChipDescription& description) {
  ChipState state;
  state.main.assign(description.mainSize, kErased);
  state.ccfg.assign(description.ccfgSize, kErased);
  state.scfg.assign(description.scfgSize, kErased);
  state.otp.assign(description.otpSize, kErased);
  state.ram.assign(description.ramSize, 0);
  state.lifeCycle = description.lifeCycle;
  return state;
}

}  // namespace simulator
