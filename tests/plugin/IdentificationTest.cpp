#include <gtest/gtest.h>

#include <algorithm>
#include <locale>
#include <string>
#include <vector>

#include "PluginUnderTest.h"

namespace {

using Lines = std::vector<std::string>;

// The operation with the host connected: identification and nothing after it.
struct IdentificationTest : testing::Test {
  IdentificationTest() {
    EXPECT_EQ(device.Initialize(), "ok");
    host.connectedCores = {"CS_DAP_0", "Cortex"};
    host.ForgetCalls();
  }

  std::string Identify() {
    host.ForgetCalls();
    return device.Perform("ReadDeviceInfo");
  }

  FakeHost host;
  PluginDevice device{host};
};

TEST_F(IdentificationTest, ReadsRegistersAndTablesInOrder) {
  host.connectedCores = {"Cortex"};
  ASSERT_EQ(Identify(), "ok");
  const Lines deviceId = {"LookupReg CFGAP_DEVICEID", "ReadReg CFGAP_DEVICEID"};
  const Lines partId = {"LookupReg CFGAP_PARTID", "ReadReg CFGAP_PARTID"};
  Lines expected = {"SetCore Cortex", "IsConnected", "SetCoreById CS_DAP_0", "IsConnected", "Connect false"};
  expected.insert(expected.end(), deviceId.begin(), deviceId.end());
  expected.push_back("GetProperty DeviceInfoRevisionTranslation");
  for (const char* table : {"DeviceInfoFlashSizeTranslation", "DeviceInfoRAMSizeTranslation"}) {
    expected.insert(expected.end(), {"SetCoreById CS_DAP_0", "IsConnected"});
    expected.insert(expected.end(), deviceId.begin(), deviceId.end());
    expected.insert(expected.end(), partId.begin(), partId.end());
    expected.push_back(std::string("GetProperty ") + table);
  }
  expected.insert(expected.end(),
                  {"SetProperty DeviceInfoFlashSize 512 KB (256 sectors)",
                   "SetProperty DeviceInfoRAMSize 36 KB", "SetProperty DeviceInfoRevision B (2.0)"});
  host.calls.erase(std::unique(host.calls.begin(), host.calls.end()), host.calls.end());  // looked up twice
  EXPECT_EQ(Joined(host.calls), Joined(expected));
}

TEST_F(IdentificationTest, TheRevisionIsTheLastRowThatMatches) {
  const std::string unknownVersion =
      "Info DEVICEID.VERSION (DEVICEID[31:28]) '0xc' unknown for selected target. "
      "Assuming latest known revision: Rev. ";
  const std::string unknownDevice =
      "Info DEVICEID.DEVICE (DEVICEID[27:12]) '0xbb77' unknown for selected target. \n"
      "Device revision cannot be determined.";
  const struct {
    const char* what;
    const char* table;
    const char* revision;
    Lines messages;
  } rows[] = {
      {"one row", "0xCBB77:3.1:D", "D (3.1)", {}},
      {"the later of two", "0xCBB77:3.1:D:0xCBB77:3.2:E", "E (3.2)", {}},
      {"an exact row before the device's last", "0xCBB77:3.1:D:0xDBB77:4.0:E", "D (3.1)", {}},
      {"another version, in its highest bit alone", "0xCBB77:3.1:D:0x4BB77:4.0:E", "D (3.1)", {}},
      {"bits above the key do not count", "0xFFCBB77:3.1:D", "D (3.1)", {}},
      {"a zero revision with a name", "0xCBB77:0.0:X", "X (0.0)", {}},
      {"a zero revision without one", "0xCBB77:0.0:-", "--", {}},
      {"decimal code", "834423:3.1:D", "D (3.1)", {}},
      {"the device's last row",
       "0x1BB77:1.0:A:0x2BB77:2.5:B:0x3BB98:3.0:C",
       "B (2.5)",
       {unknownVersion + "B (2.5)."}},
      {"a row without a name", "0x1BB77:1.0:-", "- (1.0)", {unknownVersion + "1.0."}},
      {"another device", "0x1BB98:1.0:A", "--", {unknownDevice}},
      {"no rows", "", "--", {unknownDevice}},
  };
  host.registers["CFGAP_DEVICEID"] = 0xCBB77FFF;  // the low twelve bits mean nothing here
  for (const auto& row : rows) {
    host.properties["DeviceInfoRevisionTranslation"] = row.table;
    ASSERT_EQ(Identify(), "ok") << row.what;
    EXPECT_EQ(host.properties["DeviceInfoRevision"], row.revision) << row.what;
    EXPECT_EQ(Joined(host.Plot({"Info"})), Joined(row.messages)) << row.what;
  }
}

TEST_F(IdentificationTest, TheSizeIsTheFirstRowThatMatches) {
  const std::string unknown = "Info The FLASH size of the target could not be determined.";
  const struct {
    const char* what;
    const char* table;
    const char* size;
    Lines messages;
  } rows[] = {
      {"exact, then a default", "0xBB77:0x0203:0x01:0x40000:*:*:*:0x80000", "256 KB (128 sectors)", {}},
      {"a default put first", "*:*:*:0x80000:0xBB77:0x0203:0x01:0x40000", "512 KB (256 sectors)", {}},
      {"any negative number is a wildcard", "-5:-1:*:524288", "512 KB (256 sectors)", {}},
      {"other device", "0xBB78:*:*:1:*:*:*:0x800", "2 KB (1 sectors)", {}},
      {"other part number", "*:0x0204:*:1:*:*:*:0x800", "2 KB (1 sectors)", {}},
      {"zero is a number", "0xBB77:0x0203:0:1:*:*:*:0x800", "2 KB (1 sectors)", {}},
      {"other variant", "*:*:0x80:1:*:*:*:0x800", "2 KB (1 sectors)", {}},
      {"part of a sector", "*:*:*:0xFFF", "3 KB (1 sectors)", {}},
      {"cut to 32 bits", "*:*:*:0x100000800", "2 KB (1 sectors)", {}},
      {"none", "0xBB78:*:*:0x80000", "--", {unknown}},
      {"empty", "", "--", {unknown}},
      {"size 0", "*:*:*:0", "--", {unknown}},
  };
  for (const auto& row : rows) {
    host.properties["DeviceInfoFlashSizeTranslation"] = row.table;
    ASSERT_EQ(Identify(), "ok") << row.what;
    EXPECT_EQ(host.properties["DeviceInfoFlashSize"], row.size) << row.what;
    EXPECT_EQ(Joined(host.Plot({"Info"})), Joined(row.messages)) << row.what;
  }
}

// The plug-in shares the process with a host that may write its numbers in groups.
TEST_F(IdentificationTest, TheLocaleOfTheHostDoesNotShow) {
  struct Groups : std::numpunct<char> {
    std::string do_grouping() const override { return "\1"; }
  };
  host.properties["DeviceInfoRevisionTranslation"] = "0xCBB77:10.11:B";
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Groups));
  const std::string outcome = Identify();
  const Lines known = host.Plot({"Info"});
  EXPECT_EQ(host.properties["DeviceInfoFlashSize"], "512 KB (256 sectors)");
  EXPECT_EQ(host.properties["DeviceInfoRAMSize"], "36 KB");
  EXPECT_EQ(host.properties["DeviceInfoRevision"], "B (10.11)");
  host.registers["CFGAP_DEVICEID"] = 0x1BB78000;
  Identify();
  const Lines unknown = host.Plot({"Info"});
  std::locale::global(before);

  EXPECT_EQ(outcome, "ok");
  EXPECT_EQ(Joined(known), Joined({"Info DEVICEID.VERSION (DEVICEID[31:28]) '0x1' unknown for selected "
                                   "target. Assuming latest known revision: Rev. B (10.11)."}));
  EXPECT_EQ(Joined(unknown), Joined({"Info DEVICEID.DEVICE (DEVICEID[27:12]) '0xbb78' unknown for "
                                     "selected target. \nDevice revision cannot be determined."}));
}

TEST_F(IdentificationTest, AnUnknownRamSizeIsToldAndShown) {
  host.properties["DeviceInfoRAMSizeTranslation"] = "0xBB78:*:*:0x9000";
  ASSERT_EQ(Identify(), "ok");
  EXPECT_EQ(host.properties["DeviceInfoRAMSize"], "--");
  EXPECT_EQ(Joined(host.Plot({"Info"})),
            Joined({"Info The SRAM size of the target could not be determined."}));
}

TEST_F(IdentificationTest, ComesAfterInitialization) {
  EXPECT_EQ(PluginDevice(host).Perform("ReadDeviceInfo"),
            "Internal error in Flash Loader: The sector size of MAIN flash is not known.");
}

TEST_F(IdentificationTest, AnyHostFailureReachesTheCaller) {
  for (const char* name :
       {"DeviceInfoRevisionTranslation", "DeviceInfoFlashSizeTranslation", "DeviceInfoRAMSizeTranslation"}) {
    auto kept = host.properties.extract(name);
    EXPECT_EQ(Identify(), std::string("Unknown property \"") + name + "\"");
    host.properties.insert(std::move(kept));
  }
  for (const char* call : {"LookupReg CFGAP_DEVICEID", "ReadReg CFGAP_PARTID", "SetProperty DeviceInfoRAM"}) {
    host.FailNext(call);
    EXPECT_EQ(Identify(), "probe unplugged") << call;
    EXPECT_EQ(host.calls.back().find(call), 0U) << call;
  }
  EXPECT_EQ(Identify(), "ok");
}

}  // namespace
