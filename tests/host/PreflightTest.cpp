#include "host/plan/Preflight.h"

#include <gtest/gtest.h>

#include "host/plan/ImagePlan.h"

namespace host {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Values = PropertyStore::Values;
using Lines = std::vector<std::string>;

// As a load of these images with these settings would be looked at: refusals, then warnings.
struct PreflightTest : testing::Test {
  DeviceDescription serin = ReadDeviceDescription(TOVIK_SOURCE_DIR "/devices/serin-s20.xml");
  DeviceDescription corvel = ReadDeviceDescription(TOVIK_SOURCE_DIR "/devices/corvel-h50.xml");

  static Lines Look(const DeviceDescription& device, const Values& changes,
                    const std::vector<ImageSegment>& image, PreflightOptions options = {}) {
    PropertyStore settings;
    for (const FlashProperty& property : device.properties) settings.Set(property.name, property.value);
    for (const auto& [name, value] : changes) settings.Set(name, value);
    const ImageFile file{"app", ImageFormat::Raw, image};
    const LoadPlan plan = PlanLoad({&file, 1}, device.map, PluginCutsUnder(settings));
    const Preflight found = Inspect(plan, device, settings, options);
    Lines lines;
    for (const std::string& refusal : found.refusals) lines.push_back("! " + refusal);
    lines.insert(lines.end(), found.warnings.begin(), found.warnings.end());
    return lines;
  }
};

ImageSegment At(std::uint32_t address, std::size_t size, std::uint8_t byte = 0x11) {
  return {address, Bytes(size, byte)};
}
ImageSegment Ccfg(std::uint8_t authorization = 0x5A) {
  ImageSegment ccfg = At(0x4C000000, 0x800, 0);
  ccfg.data[0x10] = ccfg.data[0x11] = 0xAA;
  ccfg.data[0x7D0] = authorization;
  return ccfg;
}
ImageSegment Record(bool isSound = true) {
  ImageSegment record = At(0x4C000750, 0x80, 0);
  const Bytes crcOf124Zeros{0x0C, 0x0E, 0xD7, 0x15};
  if (isSound) std::copy(crcOf124Zeros.begin(), crcOf124Zeros.end(), record.data.begin() + 0x7C);
  return record;
}
const ImageSegment kMain = At(0, 0x1000), kScfg = At(0x4C001000, 0x400), kRam = At(0x20000000, 8);
const std::vector<ImageSegment> kAll{kMain, Ccfg(), kScfg};
const Values kVerify{{"ImageVerificationSetting", "1"}};

constexpr const char* kNoCcfg =
    "the chip will be erased and the images hold no CCFG: it will not start its application until one is "
    "programmed";
constexpr const char* kNoScfg = "the chip will be erased and the images hold no SCFG";
constexpr const char* kNothingErased =
    "nothing is erased before programming: sectors that are not blank will fail to verify";
constexpr const char* kConfigurationKept =
    "the CCFG and SCFG on the chip are kept: those of the images will not be programmed";
constexpr const char* kNothingToCompare =
    "! nothing in the images can be compared: a verification begins with MAIN flash, and they hold none of "
    "it";

TEST_F(PreflightTest, TellsWhatTheEraseLeavesBehind) {
  const Values keep{{"FlashEraseSetting", "Retain CCFG and SCFG sectors"}};
  const Values none{{"FlashEraseSetting", "Do not erase sectors (program load only)"}};
  const struct {
    const char* what;
    Values settings;
    std::vector<ImageSegment> image;
    Lines lines;
  } cases[] = {
      {"all", {}, kAll, {}},
      {"MAIN alone", {}, {kMain}, {kNoCcfg, kNoScfg}},
      {"configuration kept", keep, {kMain}, {}},
      {"configuration kept and given", keep, kAll, {kConfigurationKept}},
      {"no erase", none, kAll, {kNothingErased}},
      {"RAM alone", {}, {kRam}, {}},
      {"user record alone", {}, {Record(), kRam}, {}},
      {"user record behind MAIN", {}, {kMain, Record()}, {kNoCcfg, kNoScfg}},
      {"user record unsound",
       {},
       {Record(false)},
       {"! the user record ends with the CRC 0x00000000, and that of its bytes is 0x15d70e0c "
        "(CcfgVerifyUserRecordCrcToggle=0 lets it pass)"}},
      {"user record unsound, unchecked", {{"CcfgVerifyUserRecordCrcToggle", "0"}}, {Record(false)}, {}},
      {"OTP alone, whole",
       {},
       {At(0x4C000800, 0x400)},
       {kNoCcfg, kNoScfg, "the images hold OTP data: what is programmed there can never be changed"}},
      {"OTP in part",
       keep,
       {At(0x4C000800, 8)},
       {"the images hold OTP data: what is programmed there can never be changed",
        "the images give 8 of the OTP's 1024 bytes: the rest can be programmed later only by an image that "
        "repeats these 8, and not in words that hold any of them"}},
  };
  for (const auto& c : cases) EXPECT_EQ(Look(serin, c.settings, c.image), c.lines) << c.what;
  EXPECT_EQ(Look(corvel, {{"NoFlashErase", "1"}, {"RetainMainSectors", "1"}}, {kMain, Ccfg()}),
            Lines{kNothingErased});
  EXPECT_EQ(Look(corvel, {{"RetainCcfgScfg", "1"}}, {kMain, Ccfg()}), Lines{kConfigurationKept});
}

TEST_F(PreflightTest, WarnsOfDebuggingThatTheLoadWillClose) {
  constexpr const char* kToggle = "CcfgOverwriteAuthorizationFieldsToggle";
  constexpr const char* kType = "CcfgOverwriteAuthorizationFieldsTypeChoicelist";
  const Lines closed{"the CCFG closes debugging for good: only a chip erase will open the chip again"};
  const Lines noPassword{
      "the CCFG asks for a debug password and none is set (DebugPassword or DebugPasswordHex)"};
  const struct {
    const char* name;
    std::uint8_t inImage;
    Values settings;
    Lines lines;
  } cases[] = {
      {"closed", 0x00, {}, closed},
      {"closed, but kept out",
       0x00,
       {{"FlashEraseSetting", "Retain CCFG and SCFG sectors"}},
       {kConfigurationKept}},
      {"password missing", 0xA5, {}, noPassword},
      {"password", 0xA5, {{"DebugPassword", "x"}}, {}},
      {"hex password", 0xA5, {{"DebugPasswordFormatList", "Hex"}, {"DebugPasswordHex", "00"}}, {}},
      {"opened by a setting", 0x00, {{kToggle, "1"}}, {}},
      {"closed by a setting", 0x5A, {{kToggle, "1"}, {kType, "Debug not allowed"}}, closed},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Look(serin, c.settings, {kMain, Ccfg(c.inImage), kScfg}), c.lines) << c.name;
}

TEST_F(PreflightTest, RefusesWhatLiesOutsideEveryMemory) {
  EXPECT_EQ(
      Look(serin, {}, {At(0x7FF00, 0x150), Ccfg(), kScfg}),
      Lines{"! 0x0007ff00..0x0008004f of app runs past the end of MAIN flash (0x00000000..0x0007ffff)"});
  const std::vector<ImageSegment> nowhere{At(0x60000000, 3)};
  EXPECT_EQ(Look(serin, {}, nowhere),
            Lines{"! 0x60000000..0x60000002 of app lies in no memory of serin-s20"});
  EXPECT_EQ(Look(serin, {}, nowhere, {.allowOutside = true}),
            Lines{"3 bytes at 0x60000000 lie in no memory of serin-s20; they will be written as RAM data"});
}

TEST_F(PreflightTest, RefusesAVerificationThatComparesNothing) {
  const auto with = [](Values more) { return more.merge(Values(kVerify)), more; };
  const struct {
    Values settings;
    std::vector<ImageSegment> image;
    Lines lines;
  } cases[] = {
      {kVerify, {kMain}, {}},
      {kVerify, {kRam}, {kNothingToCompare}},
      {kVerify, {Ccfg(), kScfg}, {kNothingToCompare}},
      {kVerify,
       {kMain, Record()},
       {"! the images hold only the user record of the CCFG, which cannot be verified by itself"}},
      {kVerify,
       {kMain, kScfg},
       {"! the SCFG cannot be compared: a verification stops at the CCFG, and the images hold none"}},
      {with({{"FlashPageToggle", "1"}, {"FlashPages", "1"}}),
       {kMain},
       {"left out by FlashPages, and so not compared: 1 of the images' 2 MAIN sectors"}},
      {with({{"FlashPageToggle", "1"}, {"FlashPages", "0-1"}}),
       {kMain},
       {"! nothing in the images can be compared: all their MAIN sectors are left out by FlashPages"}},
      {with({{"FlashPageToggle", "1"},
             {"FlashPages", "0"},
             {"FlashPagesFilledWith", "1"},
             {"FlashPagesFilledWithValue", "0x11"}}),
       {kMain},
       {"! nothing in the images can be compared: all their MAIN sectors are left out by FlashPages and "
        "FlashPagesFilledWith"}},
      // Half a sector is never left out for what fills it.
      {with({{"FlashPagesFilledWith", "1"}, {"FlashPagesFilledWithValue", "0x11"}}), {At(0, 0x400)}, {}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Look(serin, c.settings, c.image), c.lines) << testing::PrintToString(c.settings);
}

TEST_F(PreflightTest, JudgesEverySettingByItsName) {
  constexpr const char* kType = "CcfgOverwriteAuthorizationFieldsTypeChoicelist";
  constexpr const char* kId = "CcfgOverwriteAuthorizationFieldsPasswordId";
  constexpr const char* kHash = "CcfgOverwriteAuthorizationFieldsPasswordHash";
  const auto pages = [](const char* list) { return Values{{"FlashPageToggle", "1"}, {"FlashPages", list}}; };
  const auto fill = [](const char* value) {
    return Values{{"FlashPagesFilledWith", "1"}, {"FlashPagesFilledWithValue", value}};
  };
  const auto password = [&](const char* id, const std::string& hash) {
    return Values{{"CcfgOverwriteAuthorizationFieldsToggle", "1"},
                  {kType, "Require debug authentication"},
                  {kId, id},
                  {kHash, hash},
                  {"DebugPassword", "x"}};
  };
  const struct {
    Values settings;
    Lines lines;
  } cases[] = {
      {pages(" 2, 4 - 7 ,\t255"), {}},
      {pages("zz"), {"! FlashPages: \"zz\" is neither a sector nor a range of sectors"}},
      {pages("7-4"), {"! FlashPages: \"7-4\" is no range of sectors"}},
      {pages("5-"), {"! FlashPages: \"5-\" is no range of sectors"}},
      {pages("3,256"), {"! FlashPages: \"256\" is out of range: there are 256 sectors, from 0"}},
      {pages("18446744073709551616"),
       {"! FlashPages: \"18446744073709551616\" is out of range: there are 256 sectors, from 0"}},
      {pages(" "), {"! FlashPages: empty, which would leave out sector 0"}},
      {pages("5-6-9"), {"FlashPages: \"5-6-9\" means 5-6"}},
      {pages("5,"),
       {"FlashPages: an empty element means sector 0",
        "left out by FlashPages, but not by the erase: 1 of the images' 2 MAIN sectors will be blank"}},
      {{{"FlashPages", "0"}}, {"FlashPages: ignored, because FlashPageToggle is \"0\""}},
      {fill("0xFf"), {}},
      {fill("300"), {"! FlashPagesFilledWithValue: \"300\" is not a byte as 0x and two hexadecimal digits"}},
      {fill("0x1FF"),
       {"! FlashPagesFilledWithValue: \"0x1FF\" is not a byte as 0x and two hexadecimal digits"}},
      {fill("0"), {"! FlashPagesFilledWithValue: \"0\" is not a byte as 0x and two hexadecimal digits"}},
      {fill("12x3"), {"FlashPagesFilledWithValue: \"12x3\" means 0x12"}},
      {fill("ab"), {"FlashPagesFilledWithValue: \"ab\" means 0x00"}},
      {password("0123456789abcdef", std::string(64, 'E')), {}},
      {password("0123456789abcdef0", std::string(64, 'g')),
       {std::string("! ") + kId + ": not a number of at most 16 hexadecimal digits, without 0x",
        std::string("! ") + kHash + ": not a number of at most 64 hexadecimal digits, without 0x"}},
      {password("", "ab"),
       {std::string(kHash) + ": 2 of 64 digits, led by zeros: perhaps no password has this hash"}},
      {{{kId, "1"}}, {std::string(kId) + ": ignored, because " + kType + " is \"Debug always allowed\""}},
      {{{"DebugPasswordHex", "00"}},
       {"DebugPasswordHex: ignored, because DebugPasswordFormatList is \"Text\""}},
      {{{"DebugPasswordFormatList", "Hex"}, {"DebugPassword", "x"}},
       {"DebugPassword: ignored, because DebugPasswordFormatList is \"Hex\""}},
      {{{"FlashVerboseMode", "yes"}}, {"! FlashVerboseMode: \"yes\" is neither 1 nor 0"}},
      {{{"DebugPasswordFormatList", "hex"}},
       {"! DebugPasswordFormatList: \"hex\" is none of \"Text\", \"Hex\""}},
  };
  for (const auto& c : cases)
    EXPECT_EQ(Look(serin, c.settings, kAll), c.lines) << testing::PrintToString(c.settings);
}

TEST_F(PreflightTest, RefusesADescriptionThatThePluginOrItsOwnChipWouldNotTake) {
  serin.map.sectorSize = 0x400;
  serin.map.otp = {};
  EXPECT_EQ(Look(serin, {}, kAll, {.chipIsDescribed = true}),
            (Lines{"! serin-s20: the description says MAIN sectors of 1024 bytes, its chip has 2048",
                   "! serin-s20: the description says OTP none, its chip has 0x4c000800..0x4c000bff"}));
  EXPECT_EQ(Look(serin, {}, kAll), Lines{});
  for (FlashProperty& property : serin.properties)
    if (property.name == "FlashEraseSetting") property.choices.push_back(property.value = "All");
  std::erase_if(serin.properties, [](const FlashProperty& each) { return each.name == "FlashPageToggle"; });
  EXPECT_EQ(Look(serin, {}, {kRam}),
            (Lines{"! FlashPageToggle: serin-s20 has no such setting, and every load reads it",
                   "! FlashEraseSetting: \"All\" is no erase that the plug-in knows"}));
}

TEST_F(PreflightTest, RefusesAConfigurationThatThePermissionCheckWouldRefuse) {
  ImageSegment ccfg = Ccfg();
  ccfg.data[0x10] = 0xA5;
  ccfg.data[0x11] = 0x3A;
  const std::string refusal =
      "! the CCFG of the images could lock the chip: chipErase is 0x5 and not 0xa, enterSaci is 0x3 and not "
      "0xa (PermissionsSetting=0 lets it pass)";
  EXPECT_EQ(Look(serin, {}, {kMain, ccfg, kScfg}), Lines{refusal});
  EXPECT_EQ(Look(serin, {{"PermissionsSetting", "0"}}, {kMain, ccfg, kScfg}), Lines{});
  // Newer parts have their SCFG checked, too.
  EXPECT_EQ(
      Look(corvel, {}, kAll),
      Lines{"! the SCFG of the images could lock the chip: updateKeyRing is 0x1 and not 0xa, updateScfg is "
            "0x1 and not 0xa (PermissionsSetting=0 lets it pass)"});
}

}  // namespace
}  // namespace host
