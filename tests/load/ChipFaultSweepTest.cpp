#include <gtest/gtest.h>

#include <map>

#include "SweepBench.h"

// Every answer of the chip gone wrong in every way: that is told, or it made no difference, and the next load
// makes the chip right.

namespace {

constexpr std::uint8_t kProgramHsm = 33;

std::vector<std::string> AllFaults() {
  std::vector<std::string> faults = {"count=0",  "count=1",   "count=4",  "count=5",   "count=32",
                                     "count=33", "count=255", "late=600", "late=3000", "late=7000",
                                     "wrong-id", "wrong-seq", "lost",     "hang"};
  // All that have a meaning, and some that have none.
  for (unsigned result = 128; result <= 146; ++result) faults.push_back("result=" + std::to_string(result));
  faults.insert(faults.end(), {"result=1", "result=255"});
  return faults;
}

// What comes of an action that nothing disturbs: the answers to each command, and the chip.
struct Course {
  std::map<std::uint8_t, unsigned> answers;
  simulator::ChipState chip;
};

Course CourseOf(SweepBench& sweep, const Action& action) {
  sweep.PutChipBack();
  Attempt attempt(sweep.bench);
  action.prepare(attempt);
  const std::size_t before = attempt.services.Exchanges().size();
  EXPECT_EQ(ErrorOf([&] { action.run(attempt); }), "ok");
  Course course{.answers = {}, .chip = sweep.bench.State()};
  for (const host::SaciExchange& exchange : attempt.services.Exchanges().subspan(before))
    course.answers[exchange.command] += std::max(1U, exchange.sectorsAcknowledged);
  return course;
}

class ChipFaultSweep : public testing::TestWithParam<SweepCase> {
 protected:
  void Strike(const Action& action, const Course& course, std::uint8_t command, const std::string& fault) {
    SCOPED_TRACE(action.name + ", " + fault);
    sweep.PutChipBack();
    Attempt attempt(sweep.bench);
    action.prepare(attempt);
    attempt.errors.clear();
    sweep.bench.Chip().AskedFaults().Add(fault);
    const std::string error = ErrorOf([&] { action.run(attempt); });
    const bool isTold = error != "ok" || !attempt.errors.empty();
    // Of the results of an update only those that are known to it count.
    if (!isTold && command != kProgramHsm) {
      EXPECT_EQ(Difference(sweep.bench.State(), course.chip), "");
    }
    told += isTold ? 1U : 0U;
    ++struck;
    sweep.bench.Chip().AskedFaults() = {};
    sweep.ExpectNextLoadRecovers(attempt);
  }

  SweepBench sweep{GetParam()};
  unsigned struck = 0, told = 0;
};

TEST_P(ChipFaultSweep, EveryWrongAnswerIsToldOrMakesNoDifferenceAndTheNextLoadRecovers) {
  constexpr unsigned kStep = kSampled ? 12 : 1;
  unsigned answersSeen = 0;
  for (const Action& action : sweep.Actions()) {
    const Course course = CourseOf(sweep, action);
    for (const auto& [command, answers] : course.answers)
      for (unsigned nth = 1; nth <= answers; ++nth) {
        if (answersSeen++ % kStep != 0) continue;
        const std::string place = "saci:" + std::to_string(command) + ":nth=" + std::to_string(nth) + ":";
        for (const std::string& fault : AllFaults()) {
          Strike(action, course, command, place + fault);
          if (HasFailure()) return;
        }
      }
  }
  const std::map<std::string, unsigned> least = {
      {"serin-s20", 1890}, {"corvel-h40-rev2", 1715}, {"corvel-m30", 1820}};
  ExpectSwept(GetParam().device, "faults of the chip", struck, least.at(GetParam().device));
  EXPECT_GE(2 * told, struck) << "most are told";
}

INSTANTIATE_TEST_SUITE_P(Devices, ChipFaultSweep, testing::ValuesIn(kSweepCases), SweepCaseName);

}  // namespace
