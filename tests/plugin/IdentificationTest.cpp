// What the device reads of the chip, what the translation tables make of it, and what is published.

#include <algorithm>
#include <locale>

#include "DeviceTest.h"

namespace {

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

TEST_F(IdentificationTest, TheRevisionIsTheLastRowThatMatches) {
  const std::string version =
      "I DEVICEID.VERSION (DEVICEID[31:28]) '0xc' unknown for selected target. "
      "Assuming latest known revision: Rev. ";
  const std::string device =
      "I DEVICEID.DEVICE (DEVICEID[27:12]) '0xbb77' unknown for selected target. \n"
      "Device revision cannot be determined.";
  const std::string count =
      "! Property \"DeviceInfoRevisionTranslation\" in Flash Properties XML does not contain the expected "
      "number of entries (N * 3 entries expected)";
  const struct {
    const char *table, *revision;
    std::string told;
  } rows[] = {
      {"0xCBB77:3.1:D", "D (3.1)", ""},
      {"0xCBB77:3.1:D:0xCBB77:3.2:E", "E (3.2)", ""},
      {"0xCBB77:3.1:D:0xDBB77:4.0:E", "D (3.1)", ""},  // an exact row before the device's last
      {"0xCBB77:3.1:D:0x4BB77:4.0:E", "D (3.1)", ""},  // another version, in its highest bit alone
      {"0xFFCBB77:3.1:D", "D (3.1)", ""},              // bits above the key do not count
      {"0xCBB77:0.0:X", "X (0.0)", ""},
      {"0xCBB77:0.0:-", "--", ""},
      {"834423:3.1:D:", "D (3.1)", ""},  // decimal; a colon at the end adds nothing
      {"834423z:010.08:", "", count},    // an empty piece at the end is none
      {"834423z:010.08:D:0Xd:.5:", "", count},
      {"0834423z:010.08:D", "D (10.8)", ""},
      {"0XCBB77:9.9:X:834423:.5:D", "D (0.5)", ""},  // only a small x makes it hexadecimal
      {"0xCBB77:2x.y:D", "D (2.0)", ""},
      {"0xCBB77:7.7:D:0xCBB77:3:E", "E (0.0)", ""},  // no two parts: the numbers stay as they were
      {"0xCBB77:1.2.3:E", "E (0.0)", ""},
      {"0xCBB77::E", "", "! FlashUtil::ConvertRevisionStringToMajorMinor(): Input string is empty"},
      {"0x1BB77:1.0:A:0x2BB77:2.5:B:0x3BB98:3.0:C", "B (2.5)", version + "B (2.5)."},
      {"0x1BB77:1.0:-", "- (1.0)", version + "1.0."},
      {"0x1BB98:1.0:A", "--", device},
      {"", "--", device},
  };
  for (const auto& row : rows) {
    Bench bench;
    bench.host.registers["CFGAP_DEVICEID"] = 0xCBB77FFF;  // the low twelve bits mean nothing here
    EXPECT_EQ(bench.Play(std::string("cores=CS_DAP_0,Cortex; DeviceInfoRevisionTranslation=") + row.table +
                         "; ReadDeviceInfo"),
              row.told)
        << row.table;
    EXPECT_EQ(bench.host.properties["DeviceInfoRevision"], row.revision) << row.table;
  }
}

TEST_F(IdentificationTest, TheSizeIsTheFirstRowThatMatches) {
  const std::string unknown = "I The FLASH size of the target could not be determined.";
  const std::string count =
      "! Property \"DeviceInfoRevisionTranslation\" in Flash Properties XML does not contain the expected "
      "number of entries (N * 4 entries expected)";  // names the other property: that is what users know
  const struct {
    const char *table, *size;
    std::string told;
  } rows[] = {
      {"0xBB77:0x0203:0x01:0x40000:*:*:*:0x80000", "256 KB (128 sectors)", ""},
      {"*:*:*:0x80000:0xBB77:0x0203:0x01:0x40000", "512 KB (256 sectors)", ""},
      {"-5:-1:*9:524288", "512 KB (256 sectors)", ""},  // any negative number is a wildcard
      {"0xBB78:*:*:1:*:*:*:0x800", "2 KB (1 sectors)", ""},
      {"*:0x0204:*:1:*:*:*:0x800", "2 KB (1 sectors)", ""},
      {"0xBB77:0x0203:0:1:*:*:*:0x800", "2 KB (1 sectors)", ""},  // zero is a number
      {"0x:*:*:1:*:*:*:0X800:*:*:*:0x800", "--", unknown},
      {"*:*:0x80:1:*:*:*:0x800", "2 KB (1 sectors)", ""},
      {"*:*:*:0xFFF", "3 KB (1 sectors)", ""},
      {"*:*:*:0x100000800", "2 KB (1 sectors)", ""},  // cut to 32 bits
      {"0xBB78:*:*:0x80000", "--", unknown},
      {"", "--", unknown},
      {"*:*:*:0", "--", unknown},
      {"*:*:*:0x800:*", "2 KB (1 sectors)", count},
      {"*:*:*", "2 KB (1 sectors)", count},
  };
  host.properties["DeviceInfoFlashSize"] = "2 KB (1 sectors)";
  for (const auto& row : rows) {
    host.properties["DeviceInfoFlashSize"] = "2 KB (1 sectors)";
    EXPECT_EQ(Identify(std::string("DeviceInfoFlashSizeTranslation=") + row.table), row.told) << row.table;
    EXPECT_EQ(Published("FlashSize"), row.size) << row.table;
  }
  EXPECT_NE(Identify("DeviceInfoFlashSizeTranslation=1:2:3:4:5::7:8"), "");  // an empty entry
  EXPECT_EQ(
      Identify("DeviceInfoFlashSizeTranslation=*:*:*:800; DeviceInfoRAMSizeTranslation=0xBB78:*:*:0x9000"),
      "I The SRAM size of the target could not be determined.");
  EXPECT_EQ(Published("RAMSize"), "--");
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

}  // namespace
