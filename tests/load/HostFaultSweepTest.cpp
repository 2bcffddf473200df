#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <set>

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
// property, which cannot fail but only find nothing: what follows from a property that is missing.
void ExpectToldAs(const std::string& text, const FirstFailure& failed, const std::string& error) {
  const static std::set<std::string> s_regionsWithDefault = {"ScfgBase", "ScfgSize", "OtpBase", "OtpSize"};
  const static std::set<std::string> s_settingsWithDefault = {"FlashVerboseMode",
                                                              "NoFlashErase",
                                                              "RetainMainSectors",
                                                              "RetainCcfgScfg",
                                                              "PermissionsSetting",
                                                              "CcfgOverwriteCrcsToggle",
                                                              "ScfgOverwriteCrcsToggle",
                                                              "CcfgSkipProgrammingUserRecord",
                                                              "CcfgVerifyUserRecordCrcToggle"};
  const std::string& property = failed.subject;
  const std::string unknown = "Unknown property \"" + property + "\"";
  if (!failed.IsLookup()) {
    EXPECT_EQ(error, text);
  } else if (s_regionsWithDefault.contains(property)) {
    // The device then has no such region, and what belongs there is taken for RAM data.
    EXPECT_THAT(error,
                testing::AnyOf("ok", unknown, testing::HasSubstr("cannot be written: the chip refuses")));
  } else if (s_settingsWithDefault.contains(property)) {
    EXPECT_THAT(error, testing::AnyOf("ok", unknown));
  } else if (property.ends_with("crc32Info")) {
    EXPECT_THAT(error, testing::AnyOf(unknown, "Failed to read property \"" + property +
                                                   "\" from Flash Properties XML."));
  } else {
    EXPECT_EQ(error, unknown);
  }
}

class HostFaultSweep : public testing::TestWithParam<SweepCase> {};

TEST_P(HostFaultSweep, EveryFailureIsToldAndTheNextLoadRecovers) {
  constexpr unsigned kStep = kSampled ? 8 : 1;
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
