// Debug authentication: who is asked for a password, what is submitted, what is told, who is left in SACI.

#include "DeviceTest.h"

namespace {

const std::string kAsk = "5<1234567,89ABCDEF; ";
const std::string kSubmitting = "I Debug authentication is required. Submitting authentication...";
const std::string kSuccessful = " | I Debug authentication was successful.";
const std::string kStay = "EnsureAuthentication(0)", kLeave = "EnsureAuthentication(1)";

TEST(Authentication, AsksAndLeavesSaciAsThePartWants) {
  const std::vector<Row> plays = {
      {"cores=; " + kLeave, "! The DAP core needs to be connected to ensure authentication."},
      {"status=81; " + kLeave, ""},
      {"status=90; closed; " + kStay, "1 5"},
      {"5!86; status=90; closed; part=Mid; " + kStay, "1 7"},
      {kStay, "5"},
      {"5<12345678; " + kStay, "5"},  // half a password id is none
      {kLeave, "5 7"},
      {"EnsureAuthentication(-1)", "5 7"},
      {"part=HighPg1; " + kLeave, "5 7"},
      {"part=HighPg2; " + kLeave, ""},
      {"part=HighNew; " + kLeave, ""},
      {"part=Mid; " + kLeave, "7"},
      {"5!80; " + kStay, "5 | E Requesting debug password ID failed. Error: Invalid command ID"},
      {kAsk + kStay, "5 | " + kSubmitting + " | 6/3" + kSuccessful + " | 7"},
      {kAsk + "6!88; " + kStay,
       "5 | " + kSubmitting +
           " | 6/3 | E Debug authentication failed. Error: Invalid password parameter | "
           "I     You can edit the password in the flash settings under \"Debug Password\"\n | 7"},
      {kAsk + "-DebugPassword; " + kStay, "5 | " + kSubmitting + " | ! Unknown property \"DebugPassword\""},
  };
  ExpectPlays("", plays);
}

TEST(Authentication, SubmitsThePasswordOfTheSettings) {
  const struct {
    const char* format;
    std::uint32_t word;
  } rows[] = {{"Hex", 0x0000010A},  // digits "0A1": a lone last digit is a byte of its own
              {"hex", 0x00316241},
              {"Plain text", 0x00316241},
              {"", 0x00316241}};
  for (const auto& row : rows) {
    for (const std::string id : {"0,7", "FFFFFFFF,7"}) {  // the id chooses no other password
      Bench bench;
      bench.Play(std::string("DebugPassword=Ab1; DebugPasswordFormatList=") + row.format + "; 5<" + id +
                 "; " + kStay);
      EXPECT_EQ(bench.Command(6).words, (Words{bench.Command(6).words[0], row.word})) << row.format;
      EXPECT_EQ(bench.CallCount("GetProperty DebugPasswordHex") != 0, row.word < 0x1000);
    }
  }
}

TEST_F(DeviceTest, DisabledDebuggingBringsTheHelpText) {
  Play("5!86; " + kStay);
  EXPECT_EQ(
      Joined(host.events),
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

// Whatever core is current, and each step on its own.
TEST_F(DeviceTest, AuthenticationAsksTheDebugPort) {
  Device();
  host.currentCore = "Cortex";
  Play(kStay);
  const std::vector<std::string> port = {"SetCoreById CS_DAP_0", "IsConnected"};
  const std::vector<std::string> status = {"LookupReg CFGAP_DEVICESTATUS", "ReadReg CFGAP_DEVICESTATUS"};
  std::vector<std::string> expected;
  for (const auto& calls : {port, status, status, port, status})
    expected.insert(expected.end(), calls.begin(), calls.end());
  host.calls.resize(expected.size());
  EXPECT_EQ(Joined(host.calls), Joined(expected));
}

TEST_F(DeviceTest, AuthenticationWaitsForTheRomWithoutPauseOrEnd) {
  std::deque<std::uint64_t> booting(1000, 0x01001F05);
  booting.push_back(0x01008105);
  host.ScriptRegister("CFGAP_DEVICESTATUS", booting);
  EXPECT_EQ(Play(kStay), "");
  EXPECT_EQ(Deeds(), "");  // no Sleep
  EXPECT_GE(CallCount("ReadReg CFGAP_DEVICESTATUS"), 1001U);
}

}  // namespace
