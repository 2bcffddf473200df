// What plays/operations.play does not show of operations, script functions and identification: exact calls,
// the locale.

#include <gmock/gmock.h>

#include <algorithm>
#include <locale>

#include "DeviceTest.h"

namespace {

using OperationsTest = DeviceTest;

// Although the transfer before has selected it already.
TEST_F(OperationsTest, FinishingSelectsTheDebugPort) {
  Play("Erase");
  EXPECT_EQ(Joined({host.calls.end() - 3, host.calls.end()}),
            Joined({"SetCoreById CS_DAP_0", "SetCoreById CS_DAP_0", "Disconnect true"}));
}

TEST_F(OperationsTest, ScriptFunctionsCheckTheirParametersFirst) {
  C_RuneValue text(0);
  text.type = C_RuneValue::kText;
  text.text = "1";
  Play("cores=; .");
  for (const char* name : {"EnsureAuthentication", "SaciAppResetDevice"}) {
    EXPECT_EQ(Device().Script(name), "Expected at least 1 parameters, but got 0");
    EXPECT_EQ(Device().Script(name, {text}), "Expected an integral value for parameter 1");
    EXPECT_EQ(Joined(host.calls), "") << name;
  }
  for (const char* name : {"EnterSaci", "ExitSaci"})
    EXPECT_EQ(Device().Script(name, {text, text}), "0") << name;
}

// Whatever core is current, and each step on its own.
TEST_F(OperationsTest, AuthenticationAsksTheDebugPort) {
  Device();
  host.currentCore = "Cortex";
  Play("EnsureAuthentication(0)");
  const std::string port = "SetCoreById CS_DAP_0\nIsConnected\n";
  const std::string status = "LookupReg CFGAP_DEVICESTATUS\nReadReg CFGAP_DEVICESTATUS\n";
  EXPECT_THAT(Joined(host.calls), testing::StartsWith(port + status + status + port + status));
}

TEST_F(OperationsTest, AuthenticationWaitsForTheRomWithoutPauseOrEnd) {
  std::deque<std::uint64_t> booting(1000, 0x01001F05);
  booting.push_back(0x01008105);
  host.ScriptRegister("CFGAP_DEVICESTATUS", booting);
  EXPECT_EQ(Play("EnsureAuthentication(0)"), "");
  EXPECT_EQ(Joined(host.Plot({"Sleep"})), "");
  EXPECT_GE(CallCount("ReadReg CFGAP_DEVICESTATUS"), 1001U);
}

TEST_F(OperationsTest, ReadsTheMapThenRegistersAndTablesInOrder) {
  EXPECT_EQ(PluginDevice(host).Perform("ReadDeviceInfo"),
            "Internal error in Flash Loader: The sector size of MAIN flash is not known.");
  Play("cores=Cortex; start . init ReadDeviceInfo");
  host.calls.erase(std::unique(host.calls.begin(), host.calls.end()), host.calls.end());  // looked up twice
  std::string expected;
  for (const char* name : {"FlashVerboseMode", "SectorSize", "CcfgBase", "CcfgSize", "CcfgUserRecordSize",
                           "ccfg.userRecord.crc32Info", "ScfgBase", "ScfgSize", "OtpBase", "OtpSize"})
    expected += std::string("GetProperty ") + name + "\n";
  const std::string port = "SetCoreById CS_DAP_0\nIsConnected\n";
  const std::string deviceId = "LookupReg CFGAP_DEVICEID\nReadReg CFGAP_DEVICEID\n";
  const std::string partId = "LookupReg CFGAP_PARTID\nReadReg CFGAP_PARTID\n";
  expected += "SetCore Cortex\nIsConnected\n" + port + "Connect false\n" + deviceId +
              "GetProperty DeviceInfoRevisionTranslation\n" + port + deviceId + partId +
              "GetProperty DeviceInfoFlashSizeTranslation\n" + port + deviceId + partId +
              "GetProperty DeviceInfoRAMSizeTranslation\n";
  EXPECT_EQ(Joined(host.calls), expected +
                                    "SetProperty DeviceInfoFlashSize 512 KB (256 sectors)\n"
                                    "SetProperty DeviceInfoRAMSize 36 KB\n"
                                    "SetProperty DeviceInfoRevision A (1.0)\n");
}

// The plug-in shares the process with a host that may write its numbers in groups.
TEST_F(OperationsTest, TheLocaleOfTheHostDoesNotShow) {
  struct Groups : std::numpunct<char> {
    std::string do_grouping() const override { return "\1"; }
  };
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Groups));
  const std::string known = Play(
      "DeviceInfoRevisionTranslation=0xCBB77:10.11:B; ReadDeviceInfo ?DeviceInfoFlashSize "
      "?DeviceInfoRAMSize");
  const std::string unknown = Play("DeviceInfoRevisionTranslation=0xCBB78:10.11:B; ReadDeviceInfo");
  std::locale::global(before);
  EXPECT_EQ(known,
            "I DEVICEID.VERSION (DEVICEID[31:28]) '0x1' unknown for selected target. Assuming latest known "
            "revision: Rev. B (10.11). | = 512 KB (256 sectors) | = 36 KB");
  EXPECT_EQ(unknown,
            "I DEVICEID.DEVICE (DEVICEID[27:12]) '0xbb77' unknown for selected target. \n"
            "Device revision cannot be determined.");
}

}  // namespace
