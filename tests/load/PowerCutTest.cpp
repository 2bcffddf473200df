#include <gtest/gtest.h>

#include <map>

#include "SweepBench.h"

// The chip loses power in the middle of a load: the load says so, and the next one makes the chip right.

namespace {

class PowerCut : public testing::TestWithParam<std::string> {};

TEST_P(PowerCut, TheNextLoadRecoversTheChip) {
  // Neither shares a factor with the sizes of regions: all kinds of places are visited.
  constexpr unsigned kStep = kSampled ? 71 : 3;
  SweepBench sweep({GetParam()});
  unsigned cuts = 0;
  for (unsigned word = 1;; word += kStep, ++cuts) {
    SCOPED_TRACE("power fails with word " + std::to_string(word));
    sweep.PutChipBack();
    Attempt attempt(sweep.bench);
    sweep.bench.Chip().AskedFaults().Add("power:after=" + std::to_string(word));
    const std::string error = ErrorOf([&] { attempt.Load(sweep.plan); });
    EXPECT_EQ(error == "ok", sweep.bench.Chip().IsPowered());
    if (sweep.bench.Chip().IsPowered()) break;  // the load has fewer words
    sweep.bench.Chip().PowerCycle();
    sweep.ExpectNextLoadRecovers(attempt);
    if (HasFailure()) return;
  }
  const std::map<std::string, unsigned> least = {{"serin-s20", 955},
                                                 {"corvel-m30", 870},
                                                 {"corvel-h40-rev1", 955},
                                                 {"corvel-h40-rev2", 870},
                                                 {"corvel-h50", 870}};
  ExpectSwept(GetParam(), "power cuts", cuts, least.at(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(AllDevices, PowerCut, testing::ValuesIn(DeviceNames()), DeviceCaseName);

}  // namespace
