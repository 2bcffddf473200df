#include <gtest/gtest.h>

#include <cstdio>

#include "SweepBench.h"

// The chip loses power in the middle of a load: the load says so, and the next one makes the chip right.

namespace {

class PowerCut : public testing::TestWithParam<std::string> {};

TEST_P(PowerCut, TheNextLoadRecoversTheChip) {
  constexpr unsigned kStep =
      3;  // shares no factor with the sizes of regions: all kinds of places are visited
  SweepBench sweep(GetParam());
  unsigned cuts = 0;
  for (unsigned word = 1;; word += kStep) {
    SCOPED_TRACE("power fails with word " + std::to_string(word));
    sweep.PutChipBack();
    Attempt attempt(sweep.bench, sweep.plan);
    sweep.bench.Chip().AskedFaults().Add("power:after=" + std::to_string(word));
    const std::optional<std::string> error = ErrorOf([&] { attempt.Load(); });
    EXPECT_EQ(attempt.services.BrokenPromise(), "");
    if (sweep.bench.Chip().IsPowered()) {  // the load has fewer words
      EXPECT_EQ(error.value_or("ok"), "ok");
      break;
    }
    ++cuts;
    EXPECT_TRUE(error.has_value());
    sweep.bench.Chip().PowerCycle();
    sweep.ExpectNextLoadRecovers(attempt);
    if (HasFailure()) return;
  }
  EXPECT_GT(cuts, 800U);  // four sectors of 512 words, and the configuration regions
  std::printf("[ sweep ] %s load: power cut at %u places, one in %u words\n", GetParam().c_str(), cuts,
              kStep);
}

INSTANTIATE_TEST_SUITE_P(AllDevices, PowerCut, testing::ValuesIn(DeviceNames()), DeviceCaseName);

}  // namespace
