// Named operations and script functions: which steps, in which order, and which are left out after a failure.

#include <gmock/gmock.h>

#include "DeviceTest.h"

namespace {

using testing::HasSubstr;
using testing::Not;

struct OperationsTest : DeviceTest {
  OperationsTest() { host.connectedCores = {}; }
};

constexpr const char* kEntry =
    "CS_DAP_0 Connect false\n"
    "CS_DAP_0 reset request 0x5C\n"
    "CS_DAP_0 ReConnect\n"
    "SACI 1/0000\n";
constexpr const char* kFinish =
    "SACI 20/0001\n"
    "CS_DAP_0 Disconnect true";

TEST_F(OperationsTest, EntersSaciErasesAndFinishes) {
  const struct {
    const char* operation;
    const char* erase;
  } cases[] = {
      {"Erase", "SACI 9/0000 5C17E94B\n"},
      {"ChipEraseRetain",
       "SACI 9/0001 5C17E94B\n"
       "Info No sectors were retained during Chip Erase - only allowed if CCFG is valid\n"},
  };
  for (const auto& c : cases) {
    host.connectedCores = {};
    Device();
    host.ForgetCalls();
    EXPECT_EQ(Device().Perform(c.operation), "ok");
    EXPECT_EQ(Deeds(), std::string(kEntry) + c.erase + kFinish) << c.operation;
  }
}

TEST_F(OperationsTest, FinishingSelectsTheDebugPortOnceMore) {
  EXPECT_EQ(Device().Perform("Erase"), "ok");
  ASSERT_GE(host.calls.size(), 2U);
  EXPECT_EQ(host.calls.at(host.calls.size() - 2), "SetCoreById CS_DAP_0");
  // The transfer that read the answer has selected it already: the step is its own.
  EXPECT_EQ(host.calls.at(host.calls.size() - 3), "SetCoreById CS_DAP_0");
}

TEST_F(OperationsTest, BlankCheckIdentifiesBeforeItEntersSaci) {
  host.connectedCores = {"CS_DAP_0"};
  EXPECT_EQ(Device().Perform("BlankCheck"), "ok");
  EXPECT_EQ(
      Joined(Plot()),
      Joined({"identify", "CS_DAP_0 reset request 0x5C", "CS_DAP_0 ReConnect", "SACI 1/0000",
              "SACI 17/8000 00000000 00000000 00000000 00000000", "SACI 16/8000 00000000 00080000 00000000",
              "Info Blank Check: Device flash is blank", "SACI 20/0001", "CS_DAP_0 Disconnect true"}));
}

TEST_F(OperationsTest, ReadDeviceInfoLeavesTheConnectionAsItWas) {
  host.connectedCores = {"Cortex", "CS_DAP_0"};
  EXPECT_EQ(Device().Perform("ReadDeviceInfo"), "ok");
  EXPECT_EQ(Joined(Plot()), "identify\n");
  EXPECT_EQ(host.connectedCores, (std::set<std::string>{"Cortex", "CS_DAP_0"}));

  host.connectedCores = {};
  host.ForgetCalls();
  EXPECT_EQ(Device().Perform("ReadDeviceInfo"), "ok");
  EXPECT_EQ(Joined(Plot()), Joined({"CS_DAP_0 Connect false", "identify", "Cortex Disconnect true",
                                    "SEC_AP Disconnect true", "CS_DAP_0 Disconnect true"}));
  EXPECT_EQ(host.calls.at(0), "SetCore Cortex");
  EXPECT_EQ(host.calls.at(1), "IsConnected");
}

TEST_F(OperationsTest, RefusesUnknownNamesAsGiven) {
  for (const char* name : {"erase", "", "Erase ", "ReadDeviceinfo"}) {
    host.ForgetCalls();
    EXPECT_EQ(Device().Perform(name), std::string("Unsupported Operation Code: '") + name + "'");
    EXPECT_EQ(Joined(host.calls), "");
  }
}

TEST_F(OperationsTest, AFailedStepLeavesOutTheRest) {
  const struct {
    const char* operation;
    std::uint8_t refused;
    const char* error;
  } cases[] = {
      {"Erase", 9, "Error occurred when erasing the chip - Flash hardware FSM error"},
      {"BlankCheck", 16, "Error performing blank check on MAIN flash bank - Flash hardware FSM error"},
  };
  for (const auto& c : cases) {
    Device();
    host.ForgetCalls();
    host.ReplyOnce(c.refused, {.result = 0x84});
    EXPECT_EQ(Device().Perform(c.operation), c.error);
    EXPECT_THAT(Deeds(), Not(HasSubstr("SACI 20"))) << c.operation;
    EXPECT_EQ(host.connectedCores.count("CS_DAP_0"), 1U) << c.operation;
  }
}

TEST_F(OperationsTest, HsmOperationsNeedALaterCorvel) {
  const struct {
    Part part;
    bool allowed;
  } parts[] = {{Part::Serin, false},
               {Part::CorvelHighPg1, false},
               {Part::CorvelHighPg2, true},
               {Part::CorvelHighNew, true},
               {Part::CorvelMid, true}};
  host.ReplyAlways(34, {.data = Words(9)});
  host.ReplyAlways(35, {.data = Words(1)});
  for (const auto& p : parts) {
    for (const std::string operation : {"ProgramHsmImage", "ReadHsmSysInfo", "ReadHsmUpdateStatus"}) {
      Be(p.part);
      Device();
      host.connectedCores = {};
      host.ForgetCalls();
      const std::string refusal =
          "This operation is only supported for Corvel devices revision E or higher: '" + operation + "'";
      const char* allowed = operation == "ProgramHsmImage" ? "Unknown property \"HsmImagePath\"" : "ok";
      EXPECT_EQ(Device().Perform(operation.c_str()), p.allowed ? allowed : refusal);
      EXPECT_EQ(Plot().at(1), "identify");  // the guard comes first, once the port is connected
      // The path is read before SACI is entered.
      EXPECT_EQ(Saci().empty(), !p.allowed || operation == "ProgramHsmImage") << operation;
      EXPECT_EQ(CallCount("GetProperty HsmImagePath"), operation == "ProgramHsmImage" && p.allowed ? 1U : 0U);
    }
  }
}

TEST_F(OperationsTest, ScriptFunctionsCheckTheirParametersFirst) {
  C_RuneValue text(0);
  text.type = C_RuneValue::kText;
  text.text = "1";
  for (const char* name : {"EnsureAuthentication", "SaciAppResetDevice"}) {
    Device();
    host.ForgetCalls();
    EXPECT_EQ(Device().Script(name), "Expected at least 1 parameters, but got 0");
    EXPECT_EQ(Device().Script(name, {text}), "Expected an integral value for parameter 1");
    EXPECT_EQ(Joined(host.calls), "") << name;
  }
}

TEST_F(OperationsTest, EnterAndExitIgnoreTheirParameters) {
  C_RuneValue text(0);
  text.type = C_RuneValue::kText;
  text.text = "x";
  EXPECT_EQ(Device().Script("EnterSaci", {text}), "0");
  EXPECT_EQ(Deeds() + "\n", kEntry);

  host.ForgetCalls();
  EXPECT_EQ(Device().Script("ExitSaci", {text, text}), "0");
  EXPECT_EQ(Joined(Plot()), "identify\nSACI 7/0000\n");
}

TEST_F(OperationsTest, AppResetAnswersTheResult) {
  host.connectedCores = {"CS_DAP_0"};
  host.ReplyAlways(20, {.result = 0x86});
  EXPECT_EQ(Device().Script("SaciAppResetDevice", {C_RuneValue(7)}), "134");
  EXPECT_EQ(Deeds(), "SACI 20/0001");
  EXPECT_EQ(host.calls.at(0), "SetCoreById CS_DAP_0");

  host.ForgetCalls();
  EXPECT_EQ(Device().Script("SaciAppResetDevice", {C_RuneValue(0)}), "0");  // sent, no answer awaited
  EXPECT_EQ(Deeds(), "SACI 20/0000");
  EXPECT_EQ(CallCount("ReadReg SECAP_RXCTL"), 0U);
}

TEST_F(OperationsTest, AppResetNeedsAConnectedTargetInSaci) {
  EXPECT_EQ(Device().Script("SaciAppResetDevice", {C_RuneValue(1)}),
            "The DAP core needs to be connected to send SACI app reset command.");
  host.connectedCores = {"CS_DAP_0"};
  for (const int status : {0x1F, 0x21, 0x81}) {
    host.bootStatus = static_cast<std::uint8_t>(status);
    EXPECT_EQ(Device().Script("SaciAppResetDevice", {C_RuneValue(1)}),
              "The target needs to be in SACI mode to send SACI app reset command..");
  }
  EXPECT_EQ(Saci(), "");
}

}  // namespace
