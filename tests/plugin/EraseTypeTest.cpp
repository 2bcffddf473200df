#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ExposedDevice.h"

namespace {

struct EraseTypeTest : testing::Test {
  EraseTypeTest() { device.Initialize(); }

  std::string Reports() const { return Joined(host.Story({"Report"})); }

  FakeHost host;
  ExposedDevice device{host};
};

TEST_F(EraseTypeTest, IsTheTextOfTheSettingExactly) {
  const struct {
    const char* text;
    int type;
  } rows[] = {{"Do not erase sectors (program load only)", 0},
              {"Chip Erase", 1},
              {"Chip Erase (retain sectors specified in CCFG)", 2},
              {"Retain MAIN sectors and CCFG and SCFG", 3},
              {"Retain CCFG and SCFG sectors", 4}};
  for (const auto& row : rows) {
    host.ForgetCalls();
    host.properties["FlashEraseSetting"] = row.text;
    EXPECT_EQ(device.GetEraseType(), row.type);
    EXPECT_EQ(Reports(), "");
  }
}

TEST_F(EraseTypeTest, AnUnknownTextIsReportedAndErasesNothing) {
  for (const char* text : {"chip erase", "Chip Erase ", "", "1"}) {
    host.ForgetCalls();
    host.properties["FlashEraseSetting"] = text;
    EXPECT_EQ(device.GetEraseType(), 0);
    EXPECT_EQ(Reports(), Joined({"ReportError Unknown erase option. Using \"Do not erase sectors (program "
                                 "load only)\""}));
  }
}

TEST_F(EraseTypeTest, OnCorvelPartsItIsMadeFromThreeSettings) {
  host.properties["DeviceInfoRevisionTranslation"] =
      "0x1BB98:1.9:A:0x2BB98:2.0:B:0x1BBC5:1.0:A:0x1BBCC:1.0:A";
  host.properties.erase("FlashEraseSetting");
  const struct {
    std::uint32_t deviceId;
    bool keepsConfiguration;
  } parts[] = {{0x1BB98000, false}, {0x2BB98000, true}, {0x1BBC5000, true}, {0x1BBCC000, true}};
  for (const auto& part : parts) {
    host.registers["CFGAP_DEVICEID"] = part.deviceId;
    for (unsigned settings = 0; settings < 8; ++settings) {
      const bool noErase = (settings & 1) != 0;
      const bool retainMain = (settings & 2) != 0;
      const bool retainConfiguration = (settings & 4) != 0;
      // A setting that is off is now absent, now 0.
      const auto set = [&](const char* name, bool on) {
        host.properties.erase(name);
        if (on || settings % 3 == 0) host.properties[name] = on ? "1" : "0";
      };
      set("NoFlashErase", noErase);
      set("RetainMainSectors", retainMain);
      set("RetainCcfgScfg", retainConfiguration);
      int expected = retainMain ? 2 : 1;
      if (retainConfiguration && part.keepsConfiguration) expected = retainMain ? 3 : 4;
      if (noErase) expected = 0;
      EXPECT_EQ(device.GetEraseType(), expected) << std::hex << part.deviceId << " " << settings;
    }
  }
}

}  // namespace
