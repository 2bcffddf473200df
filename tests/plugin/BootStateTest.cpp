#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <set>
#include <string>
#include <vector>

#include "ErrorOf.h"
#include "ExposedDevice.h"
#include "PluginUnderTest.h"

namespace {

using Lines = std::vector<std::string>;

const Lines kReadStatus = {"LookupReg CFGAP_DEVICESTATUS", "ReadReg CFGAP_DEVICESTATUS"};
const Lines kAskConnections = {"SetCoreById CS_DAP_0", "IsConnected",        "SetCore Cortex",
                               "IsConnected",          "SetCoreById SEC_AP", "IsConnected"};
const Lines kRequestReset = {"LookupReg SECAP_RSTCTL", "WriteReg SECAP_RSTCTL 0x5C", "ReConnect"};

Lines Concat(const std::vector<Lines>& parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// Up to the first command to the ROM.
Lines CallsBeforeSaci(const FakeHost& host) {
  return {host.calls.begin(), std::find(host.calls.begin(), host.calls.end(), "ReadReg SECAP_TXCTL")};
}

struct BootStateTest : testing::Test {
  BootStateTest() {
    EXPECT_EQ(device.Initialize(), "ok");
    host.ForgetCalls();
  }

  FakeHost host;
  PluginDevice device{host};
};

TEST_F(BootStateTest, EnteringDropsTheConnectionsBehindTheDebugPort) {
  const Lines cortex = {"SetCore Cortex", "Disconnect true"};
  const Lines secAp = {"SetCoreById SEC_AP", "Disconnect true"};
  const Lines dap = {"SetCoreById CS_DAP_0", "Disconnect true"};
  const Lines select = {"SetCoreById CS_DAP_0"};
  const Lines connect = {"SetCoreById CS_DAP_0", "Connect false"};
  const struct {
    std::set<std::string> connected;
    Lines calls;
  } rows[] = {
      {{}, connect},
      {{"Cortex"}, connect},
      {{"SEC_AP"}, connect},
      {{"Cortex", "SEC_AP"}, connect},
      {{"CS_DAP_0"}, select},
      {{"CS_DAP_0", "Cortex"}, Concat({cortex, dap, connect})},
      {{"CS_DAP_0", "SEC_AP"}, Concat({secAp, dap, connect})},
      {{"CS_DAP_0", "Cortex", "SEC_AP"}, Concat({cortex, secAp, dap, connect})},
  };
  for (const auto& row : rows) {
    host.connectedCores = row.connected;
    host.bootStatus = 0x81;
    host.ForgetCalls();
    EXPECT_EQ(device.Script("EnterSaci"), "0");
    EXPECT_EQ(Joined(CallsBeforeSaci(host)),
              Joined(Concat({kAskConnections, row.calls, kRequestReset, kReadStatus})));
    EXPECT_EQ(host.CommandIds(), Bytes{1});
    EXPECT_EQ(host.commands.back().Sequence(), 0) << "the ROM has restarted";
    EXPECT_EQ(host.currentCore, "CS_DAP_0");
  }
}

TEST_F(BootStateTest, TheAnswerToTheFirstCommandIsNotLookedAt) {
  host.ReplyOnce(1, {.result = 0x86});
  EXPECT_EQ(device.Script("EnterSaci"), "0");
}

TEST_F(BootStateTest, EnteringFailsUnlessTheRomEndsInSaci) {
  for (const std::uint8_t status : Bytes{0x00, 0x1F, 0x21, 0x81, 0xA0, 0xFF}) {
    host.bootStatusAfterResetRequest = status;
    host.ForgetCalls();
    EXPECT_EQ(device.Script("EnterSaci"), "Target did not enter SACI after pin reset");
    EXPECT_TRUE(host.CommandIds().empty());
  }
}

TEST(PinReset, EndsInSaciOneWayOrTheOther) {
  const Lines pinReset = {"SetCoreById CS_DAP_0", "Disconnect true", "ResetTarget 0", "Connect false"};
  FakeHost host;
  ExposedDevice device(host);
  host.ForgetCalls();
  device.IssuePinResetAndEnterSaci();
  EXPECT_EQ(Joined(CallsBeforeSaci(host)), Joined(Concat({pinReset, kReadStatus})));
  EXPECT_EQ(host.CommandIds(), Bytes{1});
  device.IssuePinResetAndEnterSaci();
  EXPECT_EQ(host.commands.back().Sequence(), 0) << "the ROM has restarted again";

  host.bootStatusAfterPinReset = 0x1F;
  host.connectedCores = {"CS_DAP_0"};
  host.ForgetCalls();
  device.IssuePinResetAndEnterSaci();
  EXPECT_EQ(
      Joined(CallsBeforeSaci(host)),
      Joined(Concat(
          {pinReset, kReadStatus, kAskConnections, {"SetCoreById CS_DAP_0"}, kRequestReset, kReadStatus})));
  EXPECT_EQ(host.commands.back().Sequence(), 0);

  host.bootStatusAfterResetRequest = 0x1F;
  EXPECT_EQ(ErrorOf([&] { device.IssuePinResetAndEnterSaci(); }),
            "Target did not enter SACI after pin reset");
}

TEST(BootStatus, IsReadOncePerQuestion) {
  const struct {
    std::uint8_t status;
    bool before, saci, bootloader, probeLoop;
  } rows[] = {{0x00, true, false, false, false},  {0x1F, true, false, false, false},
              {0x20, false, true, false, false},  {0x21, false, false, false, false},
              {0x7F, false, false, false, false}, {0x80, false, false, true, false},
              {0x81, false, false, true, true},   {0x82, false, false, true, false},
              {0xC1, false, false, true, true},   {0xFF, false, false, true, false}};
  FakeHost host;
  ExposedDevice device(host);
  host.ForgetCalls();
  for (const auto& row : rows) {
    // Neighbouring fields all ones, then all zeroes.
    for (const std::uint32_t others : {0xFFFF00FFU, 0U}) {
      host.ScriptRegister("CFGAP_DEVICESTATUS", {others | static_cast<std::uint32_t>(row.status) << 8});
      EXPECT_EQ(device.BeforeSaci(), row.before) << +row.status;
      EXPECT_EQ(device.InSaci(), row.saci) << +row.status;
      EXPECT_EQ(device.InBootloader(), row.bootloader) << +row.status;
      EXPECT_EQ(device.InDbgProbeLoop(), row.probeLoop) << +row.status;
      EXPECT_EQ(device.IsAhbApEnabled(), others != 0);
    }
  }
  EXPECT_EQ(host.calls.size(), 2 * 2 * 5 * std::size(rows)) << "a look-up and a read each";
}

// Leaving SACI: the calls that matter once the device is identified.
struct ExitSaciTest : BootStateTest {
  static std::uint32_t Status(unsigned bootStatus) { return 0x01000005 | bootStatus << 8; }

  std::string Exit() {
    host.ForgetCalls();
    return device.Script("ExitSaci");
  }
  Lines Told() const { return host.Plot({"SACI", "Info", "Error", "Sleep"}); }
};

TEST_F(ExitSaciTest, GoesByTheLifeCycle) {
  const Lines refusal = {"Info Not exiting SACI. Life cycle state must be TESTFT, ENGRDEV or PRODDEV"};
  const Lines halt = {"SACI 7/0000"};
  for (unsigned state = 0; state < 256; ++state) {
    host.lifeCycle = static_cast<std::uint8_t>(state);
    host.bootStatus = 0x20;
    const std::string outcome = Exit();
    if (state >= 7) {
      EXPECT_EQ(outcome, "The target is in an unexpected state") << state;
      EXPECT_EQ(Joined(Told()), "") << state;
    } else {
      EXPECT_EQ(outcome, "0") << state;
      EXPECT_EQ(Joined(Told()), Joined(state >= 3 && state <= 5 ? halt : refusal)) << state;
    }
  }
}

TEST_F(ExitSaciTest, IdentifiesTheDeviceAndConnectsFirst) {
  host.connectedCores.clear();
  EXPECT_EQ(Exit(), "0");
  const Lines calls = CallsBeforeSaci(host);
  const auto identified = std::find(calls.begin(), calls.end(), "SetProperty DeviceInfoRevision B (2.0)");
  ASSERT_NE(identified, calls.end());
  EXPECT_EQ(Joined({identified + 1, calls.end()}),
            Joined(Concat({{"SetCoreById CS_DAP_0", "IsConnected"}, kReadStatus, kReadStatus})));
  EXPECT_EQ(Joined({host.calls.end() - 2, host.calls.end()}), Joined(kReadStatus));
}

TEST_F(ExitSaciTest, OutsideSaciItIsReportedAndNothingSent) {
  for (const std::uint8_t status : Bytes{0x1F, 0x21, 0x81}) {
    host.bootStatus = status;
    EXPECT_EQ(Exit(), "0");
    EXPECT_EQ(Joined(Told()), Joined({"Error You can't exit SACI mode, when not in SACI mode."}));
  }
}

TEST_F(ExitSaciTest, ARefusedHaltRunsTheApplication) {
  const Lines told = {
      "SACI 7/0000",
      "Error Halting at entry of application is not allowed. Are you sure debugging is allowed?",
      "Info Running the application, without halting at the entry of the application.", "SACI 21/0000"};
  host.ReplyOnce(7, {.result = 134});
  EXPECT_EQ(Exit(), "0");
  EXPECT_EQ(Joined(Told()), Joined(told));

  host.bootStatus = 0x20;
  host.ReplyOnce(7, {.result = 134});
  host.ReplyOnce(21, {.result = 134});
  EXPECT_EQ(Exit(), "Error when exiting the boot code - Command is not allowed due to restrictions");
  EXPECT_EQ(Joined(Told()), Joined(told));

  host.ReplyOnce(7, {.result = 0x84});
  EXPECT_EQ(Exit(), "Error when exiting the boot code - Flash hardware FSM error");
  EXPECT_EQ(Joined(Told()), Joined({"SACI 7/0000"}));
}

TEST_F(ExitSaciTest, WaitsForTheProbeLoop) {
  const std::string timeout = "Timeout when waiting for target to exit boot code.";
  const struct {
    const char* what;
    std::uint32_t deviceId;
    std::uint8_t bootStatus;  // what the ROM shows before it reaches the probe loop
    std::size_t polls;        // how often
    std::string outcome;
    std::size_t sleeps;
  } rows[] = {
      {"at once", 0x1BB77000, 0x80, 0, "0", 0},
      {"in the last poll", 0x1BB77000, 0x80, 49, "0", 49},
      {"as the time runs out", 0x1BB77000, 0x80, 50, timeout, 50},
      {"too late", 0x1BB77000, 0x80, 60, timeout, 50},
      {"Corvel, first revision", 0x1BB98000, 0x80, 3, "0", 3},
      {"Corvel, second revision: any boot code will do", 0x2BB98000, 0x80, 60, "0", 0},
      {"Corvel, newer part", 0x1BBC5000, 0x80, 60, "0", 0},
      {"Corvel, mid part", 0x1BBCC000, 0xFF, 60, "0", 0},
      {"Corvel, mid part, not yet in boot code", 0x1BBCC000, 0x7F, 60, timeout, 50},
  };
  host.properties["DeviceInfoRevisionTranslation"] =
      "0x1BB77:2.0:B:0x1BB98:1.0:A:0x2BB98:2.0:B:0x1BBC5:1.0:A:0x1BBCC:1.0:A";
  for (const auto& row : rows) {
    host.registers["CFGAP_DEVICEID"] = row.deviceId;
    host.bootStatus = 0x20;
    std::deque<std::uint64_t> values = {Status(0x20), Status(0x20)};
    // On parts that leave early each poll asks twice.
    const std::size_t reads = row.deviceId == 0x1BBCC000 ? 2 * row.polls : row.polls;
    values.insert(values.end(), reads, Status(row.bootStatus));
    values.push_back(Status(0xC1));
    host.ScriptRegister("CFGAP_DEVICESTATUS", values);
    EXPECT_EQ(Exit(), row.outcome) << row.what;
    EXPECT_EQ(Joined(Told()), Joined(Concat({{"SACI 7/0000"}, Lines(row.sleeps, "Sleep 100")}))) << row.what;
  }
}

TEST(ExitSaci, ATimeoutOfNothingFailsAfterTheHalt) {
  FakeHost host;
  ExposedDevice device(host);
  device.Initialize();
  host.ForgetCalls();
  EXPECT_EQ(ErrorOf([&] { device.ExitSaci(true, 0, 100); }),
            "Timeout when waiting for target to exit boot code.");
  EXPECT_EQ(Joined(host.Plot({"SACI", "Sleep"})), Joined({"SACI 7/0000"}));
}

TEST(ExitSaci, WithoutHaltTheApplicationRunsAndIsNotWaitedFor) {
  FakeHost host;
  ExposedDevice device(host);
  device.Initialize();
  host.ForgetCalls();
  device.ExitSaci(false, 5000, 100);
  EXPECT_EQ(Joined(host.Plot()), Joined({"identify", "SACI 21/0000"}));
  EXPECT_EQ(host.calls.back(), "SetCoreById CS_DAP_0") << "the end of the exchange";
}

}  // namespace
