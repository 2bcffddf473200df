#include <cstdlib>
#include <map>
#include <thread>

#include "DeviceTest.h"

namespace {

constexpr std::uint8_t kVerifyMain = 16;
constexpr std::uint8_t kCrcDiffers = 0x87;
constexpr unsigned kQuickRun = 100;

// Responses of two chips meet once in tens of thousands of loads; a build with TOVIK_SANITIZE=thread sees
// memory that two threads share in the first few.
unsigned LoadsADevice() {
  const char* const text = std::getenv("TOVIK_THREAD_LOADS");
  return text == nullptr ? kQuickRun : static_cast<unsigned>(std::atoi(text));
}

using Tally = std::map<std::string, unsigned>;

// What the loads of one device end with, and the creations of another over the same host, which all fail.
Tally LoadAgainAndAgain(FakeHost& host, const std::string& refusal) {
  const PluginDevice device(host);
  Tally outcomes{{device.Initialize(), 0}};
  for (unsigned i = 0; i < LoadsADevice(); ++i) {
    host.ForgetCalls();
    host.FailNext("SetCoreById CS_DAP_0", refusal);
    IFlashDevice4* none = nullptr;
    ++outcomes[Outcome(PluginEntry()("", "", "", host.Utility(), &none))];
    (void)device.Load(ProgramState::LoadStart);
    ++outcomes[device.Write(0, Bytes(4, 0x5A))];
  }
  return outcomes;
}

using TwoDevicesTest = DeviceTest;

TEST_F(TwoDevicesTest, OnTwoThreadsEachHearItsOwnChipAndHost) {
  FakeHost other;
  other.properties = host.properties;
  other.ReplyAlways(kVerifyMain, {.result = kCrcDiffers});

  Tally good, bad;
  std::thread first([&] { good = LoadAgainAndAgain(host, "the first probe is unplugged"); });
  std::thread second([&] { bad = LoadAgainAndAgain(other, "the second probe is in use"); });
  first.join();
  second.join();

  const unsigned loads = LoadsADevice();
  EXPECT_EQ(good, (Tally{{"ok", loads}, {"the first probe is unplugged", loads}}));
  EXPECT_EQ(bad,
            (Tally{{"ok", 0},
                   {"Error when verifying flash - Calculated CRC32 does not match expected CRC32", loads},
                   {"the second probe is in use", loads}}));
}

}  // namespace
