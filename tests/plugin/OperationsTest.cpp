// Named operations and script functions: which steps, in which order, and which are left out after a failure.

#include "DeviceTest.h"

namespace {

struct OperationsTest : DeviceTest {
  OperationsTest() { host.connectedCores = {}; }
};

const std::vector<std::string> kEntry = {"CS_DAP_0 Connect false", "CS_DAP_0 reset request 0x5C",
                                         "CS_DAP_0 ReConnect", "SACI 1/0000"};

TEST_F(OperationsTest, EntersSaciErasesAndFinishes) {
  std::vector<std::string> expected = kEntry;
  expected.insert(expected.end(), {"SACI 9/0000 5C17E94B", "SACI 20/0001", "CS_DAP_0 Disconnect true"});
  Play("Erase");
  EXPECT_EQ(Deeds(), Joined(expected));
  // Finishing selects the debug port, although the transfer before has selected it already.
  EXPECT_EQ(Joined({host.calls.end() - 3, host.calls.end()}),
            Joined({"SetCoreById CS_DAP_0", "SetCoreById CS_DAP_0", "Disconnect true"}));
}

TEST_F(OperationsTest, BlankCheckIdentifiesBeforeItEntersSaci) {
  Play("cores=CS_DAP_0; BlankCheck");
  EXPECT_EQ(
      Joined(host.events),
      Joined({"identify", "CS_DAP_0 reset request 0x5C", "CS_DAP_0 ReConnect", "SACI 1/0000",
              "SACI 17/8000 00000000 00000000 00000000 00000000", "SACI 16/8000 00000000 00080000 00000000",
              "Info Blank Check: Device flash is blank", "SACI 20/0001", "CS_DAP_0 Disconnect true"}));
}

TEST_F(OperationsTest, ReadDeviceInfoLeavesTheConnectionAsItWas) {
  Play("ReadDeviceInfo");
  EXPECT_EQ(Joined(host.events), Joined({"CS_DAP_0 Connect false", "identify", "Cortex Disconnect true",
                                         "SEC_AP Disconnect true", "CS_DAP_0 Disconnect true"}));
  EXPECT_EQ(host.calls.at(0), "SetCore Cortex");
  EXPECT_EQ(host.calls.at(1), "IsConnected");
  Play("cores=Cortex,CS_DAP_0; . ReadDeviceInfo");
  EXPECT_EQ(Joined(host.events), "identify\n");
}

TEST_F(OperationsTest, RefusesUnknownNamesAsGiven) {
  Device();
  for (const char* name : {"erase", "", "Erase ", "ReadDeviceinfo"})
    EXPECT_EQ(Device().Perform(name), std::string("Unsupported Operation Code: '") + name + "'");
  EXPECT_EQ(Joined(host.calls), "");
}

TEST_F(OperationsTest, AFailedStepLeavesTheTargetInSaci) {
  EXPECT_EQ(Play("9!84; Erase"), "1 9 | ! Error occurred when erasing the chip - Flash hardware FSM error");
  EXPECT_EQ(host.connectedCores.count("CS_DAP_0"), 1U);
}

TEST(HsmOperations, NeedALaterCorvel) {
  const auto refusal = [](const std::string& operation) {
    return "! This operation is only supported for Corvel devices revision E or higher: '" + operation + "'";
  };
  std::vector<Row> rows;
  for (const std::string part : {"Serin", "HighPg1"})
    for (const std::string operation : {"ProgramHsmImage", "ReadHsmSysInfo", "ReadHsmUpdateStatus"})
      rows.push_back({"part=" + part + "; " + operation, refusal(operation)});
  for (const std::string part : {"HighPg2", "HighNew", "Mid"}) {
    rows.insert(rows.end(),
                {{"part=" + part + "; ReadHsmSysInfo", "1 34 | I HSM Information: FW Version: 0.0.0 | 20/1"},
                 {"part=" + part + "; ReadHsmUpdateStatus",
                  "1 35 | I Update status: Regular boot w/o a new image. | 20/1"},
                 // The path is read before SACI is entered.
                 {"part=" + part + "; ProgramHsmImage", "! Unknown property \"HsmImagePath\""}});
  }
  ExpectPlays("34<*0,0,0,0,0,0,0,0,0; 35<*0; ", rows);
}

TEST_F(OperationsTest, ScriptFunctionsCheckTheirParametersFirst) {
  C_RuneValue text(0);
  text.type = C_RuneValue::kText;
  text.text = "1";
  Device();
  for (const char* name : {"EnsureAuthentication", "SaciAppResetDevice"}) {
    EXPECT_EQ(Device().Script(name), "Expected at least 1 parameters, but got 0");
    EXPECT_EQ(Device().Script(name, {text}), "Expected an integral value for parameter 1");
    EXPECT_EQ(Joined(host.calls), "") << name;
  }
  // The others do not look at theirs.
  EXPECT_EQ(Device().Script("EnterSaci", {text}), "0");
  EXPECT_EQ(Deeds(), Joined(kEntry));
  EXPECT_EQ(Device().Script("ExitSaci", {text, text}), "0");
  EXPECT_EQ(host.CommandIds(), (Bytes{1, 7}));
}

TEST_F(OperationsTest, AppResetAnswersTheResult) {
  const std::string notInSaci = "! The target needs to be in SACI mode to send SACI app reset command..";
  const std::vector<Row> plays = {
      {"SaciAppResetDevice(7)", "20/1 | ! 134"},
      {"cores=; SaciAppResetDevice(1)",
       "! The DAP core needs to be connected to send SACI app reset command."},
      {"status=1F; SaciAppResetDevice(1)", notInSaci},
      {"status=21; SaciAppResetDevice(1)", notInSaci},
  };
  ExpectPlays("20!*86; ", plays);
  EXPECT_EQ(Play("cores=CS_DAP_0; SaciAppResetDevice(0)"), "20");  // sent, no answer awaited
  EXPECT_EQ(host.calls.at(0), "SetCoreById CS_DAP_0");
  EXPECT_EQ(CallCount("ReadReg SECAP_RXCTL"), 0U);
}

}  // namespace
