#include "host/plan/Preflight.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kCcfgBase = 0x4C000000;
constexpr std::uint32_t kTypeOffset = 0x10;

DeviceDescription SmallDevice() {
  DeviceDescription device;
  device.name = "part";
  device.map.main = {0, 0x1000};
  device.map.sectorSize = 0x800;
  device.map.ccfg = {kCcfgBase, 0x20};
  device.chip.authorizationTypeOffset = kTypeOffset;
  return device;
}

LoadPlan Plan(std::vector<ImageBlock> blocks) {
  LoadPlan plan;
  plan.blocks = std::move(blocks);
  return plan;
}

ImageBlock Main() {
  return {Region::Main, 0, Bytes(4, 1), {}};
}
ImageBlock Ccfg(std::uint8_t authorization) {
  ImageBlock block{Region::Ccfg, kCcfgBase, Bytes(0x20, 0xFF), {}};
  block.data[kTypeOffset] = authorization;
  return block;
}

PropertyStore Settings(PropertyStore::Values changes = {}) {
  PropertyStore store(PropertyStore::Values{{"FlashEraseSetting", "Chip Erase"}});
  for (const auto& [name, value] : changes) store.Set(name, value);
  return store;
}

const constexpr char* kNoCcfg =
    "the chip will be erased and the images hold no CCFG: it will not start its application until one is "
    "programmed";
const constexpr char* kClosed =
    "the CCFG closes debugging for good: only a chip erase will open the chip again";
const constexpr char* kNoPassword =
    "the CCFG asks for a debug password and none is set (DebugPassword or DebugPasswordHex)";

TEST(PreflightTest, WarnsOfWhatTheEraseLeavesBehind) {
  DeviceDescription device = SmallDevice();
  EXPECT_THAT(WarnBeforeLoad(Plan({Main()}), device, Settings()), ElementsAre(kNoCcfg));
  device.map.scfg = {0x4C001000, 0x400};
  EXPECT_THAT(WarnBeforeLoad(Plan({Main()}), device, Settings()),
              ElementsAre(kNoCcfg, "the chip will be erased and the images hold no SCFG"));
  EXPECT_THAT(WarnBeforeLoad(Plan({Main()}), device,
                             Settings({{"FlashEraseSetting", "Retain CCFG and SCFG sectors"}})),
              IsEmpty());
  EXPECT_THAT(
      WarnBeforeLoad(Plan({Main()}), device,
                     Settings({{"FlashEraseSetting", "Do not erase sectors (program load only)"}})),
      ElementsAre("nothing is erased before programming: sectors that are not blank will fail to verify"));
  // A user record alone is programmed without an erase.
  EXPECT_THAT(WarnBeforeLoad(Plan({{Region::UserRecord, kCcfgBase, Bytes(4, 0), {}}}), device, Settings()),
              IsEmpty());
}

TEST(PreflightTest, WarnsOfDebuggingThatTheLoadWillClose) {
  const constexpr char* kToggle = "CcfgOverwriteAuthorizationFieldsToggle";
  const constexpr char* kType = "CcfgOverwriteAuthorizationFieldsTypeChoicelist";
  const struct {
    const char* name;
    std::uint8_t inImage;
    PropertyStore::Values settings;
    std::vector<std::string> warnings;
  } cases[] = {
      {"closed", 0x00, {}, {kClosed}},
      {"erased", 0xFF, {}, {kClosed}},
      {"password missing", 0xA5, {}, {kNoPassword}},
      {"password of the other format", 0xA5, {{"DebugPasswordHex", "00"}}, {kNoPassword}},
      {"open", 0x5A, {}, {}},
      {"password", 0xA5, {{"DebugPassword", "x"}}, {}},
      {"hex password", 0xA5, {{"DebugPasswordFormatList", "Hex"}, {"DebugPasswordHex", "00"}}, {}},
      {"opened by a setting", 0x00, {{kToggle, "1"}, {kType, "Debug always allowed"}}, {}},
      {"closed by a setting", 0x5A, {{kToggle, "1"}, {kType, "Debug not allowed"}}, {kClosed}},
      {"setting that is off", 0x5A, {{kToggle, "0"}, {kType, "Debug not allowed"}}, {}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(WarnBeforeLoad(Plan({Main(), Ccfg(c.inImage)}), SmallDevice(), Settings(c.settings)),
              c.warnings)
        << c.name;
}

TEST(PreflightTest, WarnsOfDataThatIsProgrammedOnceOrLiesNowhere) {
  EXPECT_THAT(
      WarnBeforeLoad(Plan({Main(),
                           Ccfg(0x5A),
                           {Region::Otp, 0x4C000800, Bytes(4, 0), {}},
                           {Region::Outside, 0x60000000, Bytes(3, 0), {}}}),
                     SmallDevice(), Settings()),
      ElementsAre("the images hold OTP data: what is programmed there can never be changed",
                  "3 bytes at 0x60000000 lie in no memory of part; they will be written as RAM data"));
}

TEST(PreflightTest, ReadsTheEraseChoiceOfBothKindsOfParts) {
  const struct {
    PropertyStore::Values settings;
    const char* text;
    const char* meaning;
  } cases[] = {
      {{}, "Chip Erase", "erases, configuration too"},
      {{{"FlashEraseSetting", "Chip Erase"}}, "Chip Erase", "erases, configuration too"},
      {{{"FlashEraseSetting", "nonsense"}}, "nonsense", ""},
      {{{"NoFlashErase", "1"}, {"RetainMainSectors", "1"}}, "Do not erase sectors (program load only)", ""},
      {{{"RetainMainSectors", "1"}},
       "Chip Erase (retain sectors specified in CCFG)",
       "erases, configuration too, but marked sectors"},
      {{{"RetainCcfgScfg", "1"}}, "Retain CCFG and SCFG sectors", "erases"},
      {{{"RetainCcfgScfg", "1"}, {"RetainMainSectors", "1"}},
       "Retain MAIN sectors and CCFG and SCFG",
       "erases, but marked sectors"},
  };
  for (const auto& c : cases) {
    const EraseChoice choice = ChosenErase(PropertyStore(c.settings));
    EXPECT_EQ(choice.text, c.text);
    EXPECT_EQ(std::string(choice.erases ? "erases" : "") +
                  (choice.erasesConfiguration ? ", configuration too" : "") +
                  (choice.keepsMarkedSectors ? ", but marked sectors" : ""),
              c.meaning)
        << c.text;
  }
}

}  // namespace
}  // namespace host
