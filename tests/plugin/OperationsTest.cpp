// What plays/operations.play does not show of operations, script functions and identification: exact calls,
// the HSM image, the locale.

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <locale>

#include "DeviceTest.h"

namespace {

using OperationsTest = DeviceTest;

const std::vector<std::string> kEntry = {"CS_DAP_0 Connect false", "CS_DAP_0 reset request 0x5C",
                                         "CS_DAP_0 ReConnect", "SACI 1/0000"};

TEST_F(OperationsTest, EntersSaciErasesAndFinishes) {
  std::vector<std::string> expected = kEntry;
  expected.insert(expected.end(), {"SACI 9/0000 5C17E94B", "SACI 20/0001", "CS_DAP_0 Disconnect true"});
  Play("cores=; Erase");
  EXPECT_EQ(Deeds(), Joined(expected));
  // Finishing selects the debug port, although the transfer before has selected it already.
  EXPECT_EQ(Joined({host.calls.end() - 3, host.calls.end()}),
            Joined({"SetCoreById CS_DAP_0", "SetCoreById CS_DAP_0", "Disconnect true"}));
}

TEST_F(OperationsTest, ReadDeviceInfoLeavesTheConnectionAsItWas) {
  Play("cores=; ReadDeviceInfo");
  EXPECT_EQ(Joined(host.events), Joined({"CS_DAP_0 Connect false", "identify", "Cortex Disconnect true",
                                         "SEC_AP Disconnect true", "CS_DAP_0 Disconnect true"}));
  EXPECT_EQ(host.calls.at(0), "SetCore Cortex");
  EXPECT_EQ(host.calls.at(1), "IsConnected");
  Play("cores=Cortex,CS_DAP_0; . ReadDeviceInfo");
  EXPECT_EQ(Joined(host.events), "identify\n");
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
  // The others do not look at theirs.
  EXPECT_EQ(Device().Script("EnterSaci", {text}), "0");
  EXPECT_EQ(Deeds(), Joined(kEntry));
  EXPECT_EQ(Device().Script("ExitSaci", {text, text}), "0");
  EXPECT_EQ(host.CommandIds(), (Bytes{1, 7}));
}

// Whatever core is current, and each step on its own.
TEST_F(OperationsTest, AuthenticationAsksTheDebugPort) {
  Device();
  host.currentCore = "Cortex";
  Play("EnsureAuthentication(0)");
  const std::vector<std::string> port = {"SetCoreById CS_DAP_0", "IsConnected"};
  const std::vector<std::string> status = {"LookupReg CFGAP_DEVICESTATUS", "ReadReg CFGAP_DEVICESTATUS"};
  std::vector<std::string> expected;
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
  EXPECT_EQ(Deeds(), "");  // no Sleep
  EXPECT_GE(CallCount("ReadReg CFGAP_DEVICESTATUS"), 1001U);
}

using Lines = std::vector<std::string>;

struct IdentificationTest : DeviceTest {
  // With the host connected: identification and nothing after it.
  std::string Identify(const std::string& settings = "") {
    return Play("cores=CS_DAP_0,Cortex; " + settings + "; . ReadDeviceInfo");
  }
  std::string Published(const std::string& name) { return host.properties["DeviceInfo" + name]; }
};

TEST_F(IdentificationTest, ReadsTheMapThenRegistersAndTablesInOrder) {
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
TEST_F(IdentificationTest, TheLocaleOfTheHostDoesNotShow) {
  struct Groups : std::numpunct<char> {
    std::string do_grouping() const override { return "\1"; }
  };
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Groups));
  const std::string known = Identify("DeviceInfoRevisionTranslation=0xCBB77:10.11:B");
  const std::string published = Published("FlashSize") + Published("RAMSize") + Published("Revision");
  const std::string unknown = Identify("DeviceInfoRevisionTranslation=0xCBB78:10.11:B");
  std::locale::global(before);
  EXPECT_EQ(published, "512 KB (256 sectors)36 KBB (10.11)");
  EXPECT_EQ(known,
            "I DEVICEID.VERSION (DEVICEID[31:28]) '0x1' unknown for selected target. Assuming latest known "
            "revision: Rev. B (10.11).");
  EXPECT_EQ(unknown,
            "I DEVICEID.DEVICE (DEVICEID[27:12]) '0xbb77' unknown for selected target. \n"
            "Device revision cannot be determined.");
}

TEST_F(IdentificationTest, AnyHostFailureReachesTheCaller) {
  for (const std::string name : {"Revision", "FlashSize", "RAMSize"}) {
    Bench bench;
    EXPECT_EQ(bench.Play("-DeviceInfo" + name + "Translation; ReadDeviceInfo"),
              "! Unknown property \"DeviceInfo" + name + "Translation\"");
  }
  for (const char* call : {"LookupReg CFGAP_DEVICEID", "ReadReg CFGAP_PARTID", "SetProperty DeviceInfoRAM"}) {
    host.FailNext(call);
    EXPECT_EQ(Identify(), "! probe unplugged") << call;
    EXPECT_EQ(host.calls.back().find(call), 0U) << call;
  }
}

struct HsmOperationsTest : DeviceTest {
  HsmOperationsTest() {
    Play("part=HighPg2; 34<*0,0,0,0,0,0,0,FF0C0203,0; HsmImagePath=" + path);
    // Records of two words and 5 bytes, and of one word and 4 bytes.
    SetImage({0x11111111, 5, 0x44332211, 0x55, 4, 0x99887766});
  }
  ~HsmOperationsTest() override { std::filesystem::remove(path); }

  void SetImage(const Words& image) const {
    std::ofstream(path, std::ios::binary | std::ios::trunc)
        .write(reinterpret_cast<const char*>(image.data()), static_cast<std::streamsize>(4 * image.size()));
  }

  const std::string path = testing::TempDir() + "tovik-hsm-" + std::to_string(getpid()) + ".bin";
};

TEST_F(HsmOperationsTest, AnImageIsStreamedAndItsVersionShown) {
  const std::pair<std::string, std::string> rows[] = {
      {"HighPg2", "stream 6"}, {"HighNew", "stream 6"}, {"Mid", "stream 4\nstream 2"}};
  for (const auto& [part, streams] : rows) {
    Play("cores=CS_DAP_0; part=" + part + "; . ProgramHsmImage");
    EXPECT_EQ(
        Joined(host.events),
        Joined({"identify", "CS_DAP_0 reset request 0x5C", "CS_DAP_0 ReConnect", "SACI 1/0000",
                "Info Programming of HSM FW image started...", "SACI 33/0000 00000006", streams,
                "Info Programming of the HSM FW image was completed successfully",
                "SetProperty HsmSysInfo --", "SACI 34/0000", "Info HSM Information: FW Version: 12.2.3",
                "SetProperty HsmSysInfo FW Version: 12.2.3", "SACI 20/0001", "CS_DAP_0 Disconnect true"}));
  }
}

}  // namespace
