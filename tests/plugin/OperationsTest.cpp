// What plays/operations.play does not show of operations, script functions and identification: exact calls,
// the locale.

#include <algorithm>
#include <locale>

#include "DeviceTest.h"

namespace {

using OperationsTest = DeviceTest;

using Lines = std::vector<std::string>;

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
  const Lines port = {"SetCoreById CS_DAP_0", "IsConnected"};
  const Lines status = {"LookupReg CFGAP_DEVICESTATUS", "ReadReg CFGAP_DEVICESTATUS"};
  Lines expected;
  for (const auto& calls : {port, status, status, port, status})
    expected.insert(expected.end(), calls.begin(), calls.end());
  host.calls.resize(expected.size());
  EXPECT_EQ(Joined(host.calls), Joined(expected));
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
  const Lines deviceId = {"LookupReg CFGAP_DEVICEID", "ReadReg CFGAP_DEVICEID"};
  Lines expected;
  for (const char* name : {"FlashVerboseMode", "SectorSize", "CcfgBase", "CcfgSize", "CcfgUserRecordSize",
                           "ccfg.userRecord.crc32Info", "ScfgBase", "ScfgSize", "OtpBase", "OtpSize"})
    expected.push_back(std::string("GetProperty ") + name);
  expected.insert(expected.end(),
                  {"SetCore Cortex", "IsConnected", "SetCoreById CS_DAP_0", "IsConnected", "Connect false"});
  expected.insert(expected.end(), deviceId.begin(), deviceId.end());
  expected.emplace_back("GetProperty DeviceInfoRevisionTranslation");
  for (const char* table : {"DeviceInfoFlashSizeTranslation", "DeviceInfoRAMSizeTranslation"}) {
    expected.insert(expected.end(), {"SetCoreById CS_DAP_0", "IsConnected"});
    expected.insert(expected.end(), deviceId.begin(), deviceId.end());
    expected.insert(expected.end(), {"LookupReg CFGAP_PARTID", "ReadReg CFGAP_PARTID"});
    expected.push_back(std::string("GetProperty ") + table);
  }
  expected.insert(expected.end(),
                  {"SetProperty DeviceInfoFlashSize 512 KB (256 sectors)",
                   "SetProperty DeviceInfoRAMSize 36 KB", "SetProperty DeviceInfoRevision A (1.0)"});
  host.calls.erase(std::unique(host.calls.begin(), host.calls.end()), host.calls.end());  // looked up twice
  EXPECT_EQ(Joined(host.calls), Joined(expected));
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
