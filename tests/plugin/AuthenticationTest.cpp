// Debug authentication: who is asked for a password, what is submitted, what is told, who is left in SACI.

#include "DeviceTest.h"
#include "ErrorOf.h"
#include "ExposedDevice.h"

namespace {

struct AuthenticationTest : DeviceTest {
  std::string Ensure(long long exitSaciAfter) {
    Device();
    host.ForgetCalls();
    return Device().Script("EnsureAuthentication", {C_RuneValue(exitSaciAfter)});
  }
};

const SaciReply kPasswordWanted{.data = {0x89ABCDEF, 0x01234567}};
constexpr const char* kLeave = "SACI 7/0000";

TEST_F(AuthenticationTest, NeedsAConnectedPort) {
  host.connectedCores = {};
  EXPECT_EQ(Ensure(1), "The DAP core needs to be connected to ensure authentication.");
  EXPECT_EQ(Deeds(), "");
}

// Whatever core is current, and each step on its own.
TEST_F(AuthenticationTest, AsksTheDebugPort) {
  Device();
  host.currentCore = "Cortex";
  EXPECT_EQ(Ensure(0), "0");
  const std::vector<std::string> port = {"SetCoreById CS_DAP_0", "IsConnected"};
  const std::vector<std::string> status = {"LookupReg CFGAP_DEVICESTATUS", "ReadReg CFGAP_DEVICESTATUS"};
  std::vector<std::string> expected;
  for (const auto& calls : {port, status, status, port, status})
    expected.insert(expected.end(), calls.begin(), calls.end());
  ASSERT_GE(host.calls.size(), expected.size());
  host.calls.resize(expected.size());
  EXPECT_EQ(Joined(host.calls), Joined(expected));
}

TEST_F(AuthenticationTest, AnOpenPortIsLeftAlone) {
  host.bootStatus = 0x81;
  EXPECT_EQ(Ensure(1), "0");
  EXPECT_EQ(Deeds(), "");
}

TEST_F(AuthenticationTest, WaitsForTheRomWithoutPauseOrEnd) {
  std::deque<std::uint64_t> booting(1000, 0x01001F05);
  booting.push_back(0x01008105);
  host.ScriptRegister("CFGAP_DEVICESTATUS", booting);
  EXPECT_EQ(Ensure(0), "0");
  EXPECT_EQ(Deeds(), "");  // no Sleep
  EXPECT_GE(CallCount("ReadReg CFGAP_DEVICESTATUS"), 1001U);
}

TEST_F(AuthenticationTest, AClosedPortIsOpenedThroughSaci) {
  host.bootStatus = 0x90;
  host.ahbApEnabled = false;
  EXPECT_EQ(Ensure(0), "0");
  EXPECT_EQ(Saci(), "SACI 1/0000, SACI 5/0000");
}

TEST_F(AuthenticationTest, WithoutAPasswordIdLeavesSaciOnlyWhenAsked) {
  const struct {
    SaciReply reply;
    long long exitSaciAfter;
    const char* commands;
  } cases[] = {
      {{}, 0, "SACI 5/0000"},
      {{.data = {0x12345678}}, 0, "SACI 5/0000"},  // half a password id is none
      {{}, 1, "SACI 5/0000, SACI 7/0000"},
      {{}, -1, "SACI 5/0000, SACI 7/0000"},
  };
  for (const auto& c : cases) {
    host.bootStatus = 0x20;
    host.ReplyOnce(5, c.reply);
    EXPECT_EQ(Ensure(c.exitSaciAfter), "0");
    EXPECT_EQ(Saci(), c.commands);
    EXPECT_EQ(Messages(), "");
  }
}

TEST_F(AuthenticationTest, SubmitsThePasswordOfTheSettings) {
  host.properties["DebugPassword"] = "Ab1";
  const struct {
    const char* format;
    const char* submission;
  } cases[] = {
      {"Hex", "SACI 6/0001 0000010A"},  // digits "0A1": a lone last digit is a byte of its own
      {"hex", "SACI 6/0001 00316241"},
      {"Plain text", "SACI 6/0001 00316241"},
      {"", "SACI 6/0001 00316241"},
  };
  for (const auto& c : cases) {
    for (const std::uint32_t id : {0U, 0xFFFFFFFFU}) {  // the id chooses no other password
      host.bootStatus = 0x20;
      host.properties["DebugPasswordFormatList"] = c.format;
      host.ReplyOnce(5, {.data = {id, 7}});
      EXPECT_EQ(Ensure(0), "0");
      EXPECT_EQ(Saci(), std::string("SACI 5/0000, ") + c.submission + ", " + kLeave) << c.format;
      EXPECT_EQ(Messages(),
                "Info Debug authentication is required. Submitting authentication...\n"
                "Info Debug authentication was successful.");
    }
  }
}

TEST_F(AuthenticationTest, OnlyTheChosenPasswordIsRead) {
  host.ReplyAlways(5, kPasswordWanted);
  EXPECT_EQ(Ensure(0), "0");
  EXPECT_EQ(CallCount("GetProperty DebugPasswordHex"), 0U);
  host.bootStatus = 0x20;
  host.properties.erase("DebugPassword");
  EXPECT_EQ(Ensure(0), "Unknown property \"DebugPassword\"");
}

TEST_F(AuthenticationTest, AWrongPasswordIsToldAndSaciLeft) {
  host.ReplyAlways(5, kPasswordWanted);
  host.ReplyAlways(6, {.result = 0x88});
  EXPECT_EQ(Ensure(0), "0");
  EXPECT_EQ(Deeds(),
            "SACI 5/0000\n"
            "Info Debug authentication is required. Submitting authentication...\n"
            "SACI 6/0003 6E65706F 73657320 00656D61\n"
            "Error Debug authentication failed. Error: Invalid password parameter\n"
            "Info     You can edit the password in the flash settings under \"Debug Password\"\n\n"
            "SACI 7/0000");
}

TEST_F(AuthenticationTest, ARefusedRequestIsTold) {
  host.ReplyAlways(5, {.result = 0x80});
  EXPECT_EQ(Ensure(0), "0");
  EXPECT_EQ(Deeds(),
            "SACI 5/0000\n"
            "Error Requesting debug password ID failed. Error: Invalid command ID");
}

TEST_F(AuthenticationTest, DisabledDebuggingBringsTheHelpText) {
  host.ReplyAlways(5, {.result = 0x86});
  EXPECT_EQ(Ensure(0), "0");
  EXPECT_EQ(
      Joined(Plot()),
      Joined({"identify", "SACI 5/0000",
              "Info Debugging is not allowed. If this is not expected, check your CCFG.\n",
              "Info     If you are experiencing issues with loading your application, do the following (this "
              "will erase the chip):\n",
              "Info      - Quillon:\n", "Info        - End the current debug session (if any is active).\n",
              "Info        - View -> Target Configurations -> Right click on .qtcfg file for your project -> "
              "Launch Selected Configuration.\n",
              "Info        - Right click on the 'Debug Probe/Cortex_M0P' and select 'Show all cores'.\n",
              "Info        - Select the 'Debug Probe/CS_DAP0' item after expanding the 'Non Debuggable "
              "Devices' item.\n",
              "Info        - Scripts -> Serin -> ChipErase  to start Chip erase.\n",
              "Info        - You should now be able to load your application to the target.\n",
              "Info Debugging is not allowed. If this not expected, check your CCFG.\n",
              "Info     Flash loading is currently not supported if debugging is not allowed.\n"}));
}

TEST_F(AuthenticationTest, LaterCorvelsAreAskedForNothing) {
  const struct {
    Part part;
    const char* commands;
  } cases[] = {
      {Part::CorvelHighPg1, "SACI 5/0000, SACI 7/0000"},
      {Part::CorvelHighPg2, ""},
      {Part::CorvelHighNew, ""},
      {Part::CorvelMid, "SACI 7/0000"},
  };
  for (const auto& c : cases) {
    Be(c.part);
    host.bootStatus = 0x20;
    EXPECT_EQ(Ensure(1), "0");
    EXPECT_EQ(Saci(), c.commands) << Hex8(static_cast<std::uint32_t>(c.part));
  }
}

TEST(Authentication, NeedsAConnectedTargetInSaci) {
  FakeHost host;
  ExposedDevice device(host);
  device.Initialize();
  const auto outcome = [&] { return ErrorOf([&] { device.AuthenticateDebugging(); }); };
  host.connectedCores = {};
  EXPECT_EQ(outcome(), "The DAP core needs to be connected to authenticate debugging.");
  host.connectedCores = {"CS_DAP_0"};
  host.bootStatus = 0x81;
  EXPECT_EQ(outcome(), "The target needs to be in SACI mode authenticate debugging.");
  EXPECT_TRUE(host.CommandIds().empty());
}

}  // namespace
