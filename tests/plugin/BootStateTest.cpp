// Entering SACI and leaving it.

#include <algorithm>

#include "DeviceTest.h"

namespace {

const std::string kReadStatus = "LookupReg CFGAP_DEVICESTATUS\nReadReg CFGAP_DEVICESTATUS\n";
const std::string kAskConnections =
    "SetCoreById CS_DAP_0\nIsConnected\nSetCore Cortex\nIsConnected\nSetCoreById SEC_AP\nIsConnected\n";
const std::string kSelect = "SetCoreById CS_DAP_0\n";
const std::string kRequestReset = "LookupReg SECAP_RSTCTL\nWriteReg SECAP_RSTCTL 0x5C\nReConnect\n";

struct BootStateTest : DeviceTest {
  // From `first` up to the first command to the ROM.
  [[nodiscard]] std::string CallsBeforeSaci(const std::string& first) const {
    const auto begin = std::find(host.calls.begin(), host.calls.end(), first);
    return Joined({begin, std::find(begin, host.calls.end(), "ReadReg SECAP_TXCTL")});
  }
};

TEST_F(BootStateTest, EnteringDropsTheConnectionsBehindTheDebugPort) {
  const std::string off = "Disconnect true\n", connect = kSelect + "Connect false\n";
  const std::string cortex = "SetCore Cortex\n" + off, secAp = "SetCoreById SEC_AP\n" + off;
  const std::pair<std::string, std::string> rows[] = {
      {"", connect},
      {"Cortex,SEC_AP", connect},
      {"CS_DAP_0", kSelect},
      {"CS_DAP_0,Cortex", cortex + kSelect + off + connect},
      {"CS_DAP_0,SEC_AP", secAp + kSelect + off + connect},
      {"CS_DAP_0,Cortex,SEC_AP", cortex + secAp + kSelect + off + connect}};
  for (const auto& [connected, calls] : rows) {
    EXPECT_EQ(Play("status=81; cores=" + connected + "; . EnterSaci()"), "1");
    EXPECT_EQ(CallsBeforeSaci("SetCoreById CS_DAP_0"), kAskConnections + calls + kRequestReset + kReadStatus);
    EXPECT_EQ(host.commands.back().Sequence(), 0) << "the ROM has restarted";
    EXPECT_EQ(host.currentCore, "CS_DAP_0");
  }
}

TEST_F(BootStateTest, EnteringFailsUnlessTheRomEndsInSaci) {
  EXPECT_EQ(Play("1!86; EnterSaci()"), "1");  // the answer to the first command is not looked at
  for (const std::uint8_t status : Bytes{0x00, 0x1F, 0x21, 0x81, 0xA0, 0xFF}) {
    host.bootStatusAfterResetRequest = status;
    EXPECT_EQ(Play(". EnterSaci()"), "! Target did not enter SACI after pin reset");
  }
}

TEST_F(BootStateTest, APinResetEndsInSaciOneWayOrTheOther) {
  const std::string pinReset = "ResetTarget 0\nConnect false\n" + kReadStatus;
  Play("start m");
  EXPECT_EQ(CallsBeforeSaci("ResetTarget 0"), pinReset);
  EXPECT_EQ(host.commands.at(0).Sequence(), 0);

  host.bootStatusAfterPinReset = 0x1F;
  Play("cores=CS_DAP_0; start . m");
  EXPECT_EQ(CallsBeforeSaci("ResetTarget 0"),
            pinReset + kAskConnections + kSelect + kRequestReset + kReadStatus);
  EXPECT_EQ(host.commands.at(0).Sequence(), 0);
}

TEST_F(BootStateTest, LeavingIdentifiesTheDeviceAndConnectsFirst) {
  EXPECT_EQ(Play("cores=; ExitSaci()"), "7");
  const std::string identified = "SetProperty DeviceInfoRevision A (1.0)";
  EXPECT_EQ(CallsBeforeSaci(identified),
            identified + "\n" + kSelect + "IsConnected\n" + kReadStatus + kReadStatus);
  EXPECT_EQ(Joined({host.calls.end() - 2, host.calls.end()}), kReadStatus);
}

TEST_F(BootStateTest, LeavingGoesByTheLifeCycle) {
  for (unsigned state = 0; state < 256; ++state) {
    host.lifeCycle = static_cast<std::uint8_t>(state);
    const std::string outcome = Play("status=20; . ExitSaci()");
    if (state >= 7) {
      EXPECT_EQ(outcome, "! The target is in an unexpected state") << state;
    } else if (state >= 3 && state <= 5) {
      EXPECT_EQ(outcome, "7") << state;
    } else {
      EXPECT_EQ(outcome, "I Not exiting SACI. Life cycle state must be TESTFT, ENGRDEV or PRODDEV") << state;
    }
  }
}

// The ROM shows one boot status for so many polls, then another.
TEST(ExitSaci, WaitsForTheProbeLoop) {
  const std::string timeout = "7 | ! Timeout when waiting for target to exit boot code.";
  const struct {
    const char* part;
    std::uint64_t first;
    std::size_t polls;
    std::uint64_t then;
    std::string outcome;
    std::size_t sleeps;
  } rows[] = {
      {"Serin", 0x80, 0, 0x81, "7", 0},       {"Serin", 0x80, 49, 0xC1, "7", 49},
      {"Serin", 0x80, 50, 0xC1, timeout, 50},  // as the time runs out
      {"Serin", 0x80, 60, 0xC1, timeout, 50}, {"Serin", 0x82, 60, 0xC1, timeout, 50},
      {"Serin", 0xC0, 60, 0xC1, timeout, 50}, {"HighPg1", 0x80, 3, 0xC1, "7", 3},
      {"HighPg2", 0x80, 60, 0xC1, "7", 0},  // any boot code will do
      {"HighNew", 0x80, 60, 0xC1, "7", 0},    {"Mid", 0xFF, 60, 0xC1, "7", 0},
      {"Mid", 0x7F, 120, 0xC1, timeout, 50},  // two reads a poll
  };
  for (const auto& row : rows) {
    for (const std::uint64_t others : {0x01000005U, 0xFEFF0005U}) {  // the neighbouring fields
      Bench bench;
      std::deque<std::uint64_t> values = {others | 0x2000, others | 0x2000};
      values.insert(values.end(), row.polls, others | row.first << 8);
      values.push_back(others | row.then << 8);
      bench.host.ScriptRegister("CFGAP_DEVICESTATUS", values);
      EXPECT_EQ(bench.Play(std::string("part=") + row.part + "; ExitSaci()"), row.outcome)
          << row.part << row.first;
      EXPECT_EQ(Joined(bench.host.Plot({"Sleep"})), Joined(std::vector<std::string>(row.sleeps, "Sleep 100")))
          << row.part << row.first;
    }
  }
}

}  // namespace
