#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>

#include "SweepBench.h"

// Whatever is done, with every host call in it failing in turn: the failure is told, the device object stays
// usable, and the next load makes the chip right.

namespace {

// The host's failure reaches the caller with the host's own text. The one exception is the look-up of a
// property, which cannot fail but only find nothing: what follows from a property that is missing.
void ExpectToldAs(const std::string& text, const WatchedCall& failed,
                  const std::optional<std::string>& error) {
  if (failed.function != HostFunction::GetValueOfProperty) {
    EXPECT_EQ(error, text);
    return;
  }
  const std::string& property = failed.subject;
  const std::string unknown = "Unknown property \"" + property + "\"";
  const std::string unreadable = "Failed to read property \"" + property + "\" from Flash Properties XML.";
  const static char* const s_regionsWithDefault[] = {"ScfgBase", "ScfgSize", "OtpBase", "OtpSize"};
  const static char* const s_settingsWithDefault[] = {"FlashVerboseMode",
                                                      "NoFlashErase",
                                                      "RetainMainSectors",
                                                      "RetainCcfgScfg",
                                                      "PermissionsSetting",
                                                      "CcfgOverwriteCrcsToggle",
                                                      "ScfgOverwriteCrcsToggle",
                                                      "CcfgSkipProgrammingUserRecord",
                                                      "CcfgVerifyUserRecordCrcToggle"};
  const auto isIn = [&](const auto& names) {
    return std::find(std::begin(names), std::end(names), property) != std::end(names);
  };
  if (isIn(s_regionsWithDefault)) {
    // The device then has no such region, and what belongs there is taken for RAM data.
    EXPECT_THAT(error.value_or("ok"),
                testing::AnyOf("ok", unknown, testing::HasSubstr("Bus error: writing")));
  } else if (isIn(s_settingsWithDefault)) {
    EXPECT_THAT(error.value_or("ok"), testing::AnyOf("ok", unknown));
  } else if (property.ends_with("crc32Info")) {
    EXPECT_THAT(error, testing::Optional(testing::AnyOf(unknown, unreadable)));
  } else {
    EXPECT_EQ(error, unknown);
  }
}

class HostFaultSweep : public testing::TestWithParam<std::string> {};

TEST_P(HostFaultSweep, EveryFailureIsToldAndTheNextLoadRecovers) {
  SweepBench sweep(GetParam());
  for (const Action& action : sweep.Actions()) {
    std::uint64_t calls = 0;
    for (const std::string text : {"the probe says: no (0x17)", ""}) {
      for (std::uint64_t nth = 1;; ++nth) {
        SCOPED_TRACE(action.name + ", host call " + std::to_string(nth) + " fails with \"" + text + "\"");
        sweep.PutChipBack();
        Attempt attempt(sweep.bench, sweep.plan);
        action.prepare(attempt);
        attempt.services.FailCall(nth, text);
        const std::optional<std::string> error = ErrorOf([&] { action.run(attempt); });
        EXPECT_EQ(attempt.services.BrokenPromise(), "");
        const std::optional<WatchedCall>& failed = attempt.services.FailedCall();
        if (!failed) {  // it ran to its end: every call has had its turn
          EXPECT_EQ(error.value_or("ok"), "ok");
          break;
        }
        calls = nth;
        ExpectToldAs(text, *failed, error);
        if (failed->function == HostFunction::GetValueOfProperty) attempt.ForgetInitialization();
        sweep.ExpectNextLoadRecovers(attempt);
        if (HasFailure()) return;
      }
    }
    std::printf("[ sweep ] %s %s: %llu host calls x 2 texts\n", GetParam().c_str(), action.name.c_str(),
                static_cast<unsigned long long>(calls));
  }
}

INSTANTIATE_TEST_SUITE_P(Devices, HostFaultSweep,
                         testing::Values("serin-s20", "corvel-h40-rev2", "corvel-m30"), DeviceCaseName);

}  // namespace
