#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SweepBench.h"

// A load with every packet to the probe, and every access through the debug port, gone wrong in turn: it is
// told in one line that says what happened, the session goes on where the probe is still there, and the next
// load makes the chip right.

namespace {

struct WireFault {
  const char* name;
  std::string (*text)(unsigned nth);  // in the simulator's fault grammar
  const char* told;                   // one of these
  unsigned step;                      // every packet, but not every access of the thousands
};
const WireFault s_faults[] = {
    {"lost", [](unsigned nth) { return "packet:" + std::to_string(nth) + ":lost"; },
     "the debug probe does not answer|the debug probe answered ", 1},
    {"cut short", [](unsigned nth) { return "packet:" + std::to_string(nth) + ":short"; }, "cut short", 1},
    {"unplugged", [](unsigned nth) { return "packet:" + std::to_string(nth) + ":unplugged"; }, "unplugged",
     1},
    {"WAIT", [](unsigned nth) { return "wire:nth=" + std::to_string(nth) + ":wait"; }, "\\(WAIT\\)", 13},
    {"FAULT", [](unsigned nth) { return "wire:nth=" + std::to_string(nth) + ":fault"; }, "\\(FAULT,", 5},
};

class WireFaultSweep : public testing::TestWithParam<SweepCase> {};

TEST_P(WireFaultSweep, EveryFaultIsToldAndTheNextLoadRecovers) {
  const auto create = [] { return std::make_unique<SweepBench>(GetParam()); };
  auto sweep = create();
  unsigned places = 0;
  for (const WireFault& fault : s_faults)
    for (unsigned nth = 1;; nth += fault.step * (kSampled ? 23 : 1), ++places) {
      SCOPED_TRACE(fault.name + std::string(" at ") + std::to_string(nth));
      const bool goes = fault.name == std::string_view("unplugged");
      if (goes) sweep = create();
      sweep->PutChipBack();
      Attempt attempt(sweep->bench);
      attempt.Create();
      sweep->bench.Chip().AskedFaults().Add(fault.text(nth));
      const std::string error = ErrorOf([&] { attempt.Load(sweep->plan); });
      if (error == "ok") break;  // it has run to its end before the fault
      EXPECT_THAT(error, testing::ContainsRegex(fault.told));
      EXPECT_EQ(error.find('\n'), std::string::npos) << error;
      sweep->bench.Chip().AskedFaults() = {};
      if (goes) {
        EXPECT_THAT(ErrorOf([&] { attempt.Load(sweep->plan); }), testing::HasSubstr(fault.told));
        const auto pluggedIn = create();
        pluggedIn->bench.Chip().Restore(sweep->bench.State());
        Attempt another(pluggedIn->bench);
        pluggedIn->ExpectNextLoadRecovers(another);
      } else {
        sweep->ExpectNextLoadRecovers(attempt);
      }
      if (HasFailure()) return;
    }
  ExpectSwept(GetParam().device, "faults of the wire", places, 1650);
}

INSTANTIATE_TEST_SUITE_P(Devices, WireFaultSweep,
                         testing::Values(SweepCase{"serin-s20"}, SweepCase{"serin-s20", host::ReadAhead::No}),
                         SweepCaseName);

}  // namespace
