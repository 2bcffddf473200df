#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "SweepBench.h"

// Whatever is done, with every host call in it failing in turn: the failure is told, the device object stays
// usable, and the next load makes the chip right.

namespace {

struct FirstFailure final : host::HostCallObserver {
  void Saw(const host::HostCall& call, std::uint64_t) override {
    if (!call.error || !function.empty()) return;
    function = call.function;
    subject = call.subject.value_or("");
  }
  [[nodiscard]] bool IsLookup() const { return function == "GetValueOfProperty"; }

  std::string function;  // empty when none has failed
  std::string subject;
};

// The host's failure reaches the caller with the host's own text. The one exception is the look-up of a
// property, which cannot fail but only find nothing: then the property is named, or has a default, without
// which a region is not there and what belongs to it is taken for RAM data.
void ExpectToldAs(const std::string& text, const FirstFailure& failed, const std::string& error) {
  if (!failed.IsLookup()) {
    EXPECT_EQ(error, text);
    return;
  }
  const std::string withDefault =
      " ScfgBase ScfgSize OtpBase OtpSize FlashVerboseMode NoFlashErase RetainMainSectors RetainCcfgScfg "
      "PermissionsSetting CcfgOverwriteCrcsToggle ScfgOverwriteCrcsToggle CcfgSkipProgrammingUserRecord "
      "CcfgVerifyUserRecordCrcToggle ";
  if (withDefault.find(" " + failed.subject + " ") != std::string::npos &&
      (error == "ok" || error.find("cannot be written: the chip refuses") != std::string::npos))
    return;
  EXPECT_THAT(error, testing::HasSubstr("roperty \"" + failed.subject + "\""));
}

class HostFaultSweep : public testing::TestWithParam<SweepCase> {};

TEST_P(HostFaultSweep, EveryFailureIsToldAndTheNextLoadRecovers) {
  constexpr unsigned kStep = kSampled ? 43 : 1;
  SweepBench sweep(GetParam());
  unsigned calls = 0;
  for (const Action& action : sweep.Actions())
    for (const std::string text : {"the probe says: no (0x17)", ""})
      for (std::uint64_t nth = text.empty() ? 1 + kStep / 2 : 1;; nth += kStep, ++calls) {
        SCOPED_TRACE(action.name + ", host call " + std::to_string(nth) + " fails with \"" + text + "\"");
        sweep.PutChipBack();
        FirstFailure failed;
        Attempt attempt(sweep.bench);
        action.prepare(attempt);
        attempt.services.AddObserver(failed);
        attempt.services.Fail({.call = attempt.services.CallCount() + nth, .text = text});
        const std::string error = ErrorOf([&] { action.run(attempt); });
        if (failed.function.empty()) {  // it ran to its end: every call has had its turn
          EXPECT_EQ(error, "ok");
          break;
        }
        ExpectToldAs(text, failed, error);
        if (failed.IsLookup()) attempt.ForgetInitialization();
        sweep.ExpectNextLoadRecovers(attempt);
        if (HasFailure()) return;
      }
  const std::map<std::string, unsigned> least = {
      {"serin-s20", 2 * 2434}, {"corvel-h40-rev2", 2 * 2213}, {"corvel-m30", 2 * 2394}};
  ExpectSwept(GetParam().device, "failed host calls", calls, least.at(GetParam().device));
}

INSTANTIATE_TEST_SUITE_P(Devices, HostFaultSweep, testing::ValuesIn(kSweepCases), SweepCaseName);

}  // namespace
