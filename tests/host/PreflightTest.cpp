#include "host/plan/Preflight.h"

#include <gtest/gtest.h>

#include <sstream>

#include "host/plan/ImagePlan.h"

namespace host {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Image = std::vector<ImageSegment>;

const DeviceDescription kSerin = ReadDeviceDescription(TOVIK_SOURCE_DIR "/devices/serin-s20.xml");
const DeviceDescription kCorvel = ReadDeviceDescription(TOVIK_SOURCE_DIR "/devices/corvel-h50.xml");

// What is said of a load of this image with these settings ("A=1; B=2"): refusals with "! ", then warnings,
// with " | " between them.
std::string Said(const DeviceDescription& device, const std::string& changes, const Image& image,
                 PreflightOptions options = {}) {
  PropertyStore settings;
  for (const FlashProperty& property : device.properties) settings.Set(property.name, property.value);
  std::istringstream stream(changes);
  for (std::string change; std::getline(stream >> std::ws, change, ';');)
    settings.Set(change.substr(0, change.find('=')), change.substr(change.find('=') + 1));
  const ImageFile file{"app", ImageFormat::Raw, image};
  const LoadPlan plan = PlanLoad({&file, 1}, device.map, PluginCutsUnder(settings));
  const Preflight found = Inspect(plan, device, settings, options);
  std::string said;
  for (const std::string& refusal : found.refusals) said += (said.empty() ? "! " : " | ! ") + refusal;
  for (const std::string& warning : found.warnings) said += (said.empty() ? "" : " | ") + warning;
  return said;
}

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
const Image kAll{kMain, Ccfg(), kScfg};

const std::string kKeep = "FlashEraseSetting=Retain CCFG and SCFG sectors";
const std::string kNothingErased =
    "nothing is erased before programming: sectors that are not blank will fail to verify";
const std::string kConfigurationKept =
    "the CCFG and SCFG on the chip are kept: those of the images will not be programmed";
const std::string kMainAlone =
    "the chip will be erased and the images hold no CCFG: it will not start its application until one is "
    "programmed | the chip will be erased and the images hold no SCFG";
const std::string kOtp = "the images hold OTP data: what is programmed there can never be changed";
const std::string kNothing = "! nothing in the images can be compared: ";

struct Case {
  std::string settings;
  Image image;
  std::string said;
};

TEST(PreflightTest, TellsWhatTheEraseLeavesBehind) {
  const Case cases[] = {
      {"", kAll, ""},
      {"", {kMain}, kMainAlone},
      {kKeep, {kMain}, ""},
      {kKeep, kAll, kConfigurationKept},
      {"FlashEraseSetting=Chip Erase (retain sectors specified in CCFG)", {kMain}, kMainAlone},
      {"FlashEraseSetting=Retain MAIN sectors and CCFG and SCFG", kAll, kConfigurationKept},
      {"FlashEraseSetting=Do not erase sectors (program load only)", kAll, kNothingErased},
      {"", {kRam}, ""},
      {"", {Record(), kRam}, ""},
      {"", {kMain, Record()}, kMainAlone},
      {"",
       {Record(false)},
       "! the user record ends with the CRC 0x00000000, and that of its bytes is 0x15d70e0c "
       "(CcfgVerifyUserRecordCrcToggle=0 lets it pass)"},
      {"CcfgVerifyUserRecordCrcToggle=0", {Record(false)}, ""},
      {"", {At(0x4C000800, 0x400)}, kMainAlone + " | " + kOtp},
      {kKeep,
       {At(0x4C000800, 8)},
       kOtp +
           " | the images give 8 of the OTP's 1024 bytes: the rest can be programmed later only by an image "
           "that repeats these 8, and not in words that hold any of them"}};
  for (const Case& c : cases) EXPECT_EQ(Said(kSerin, c.settings, c.image), c.said) << c.settings;
  EXPECT_EQ(Said(kCorvel, "NoFlashErase=1; RetainMainSectors=1", {kMain, Ccfg()}), kNothingErased);
  EXPECT_EQ(Said(kCorvel, "RetainCcfgScfg=1", {kMain, Ccfg()}), kConfigurationKept);
}

TEST(PreflightTest, WarnsOfDebuggingThatTheLoadWillClose) {
  const std::string kOverwrite = "CcfgOverwriteAuthorizationFieldsToggle=1";
  const std::string closed = "the CCFG closes debugging for good: only a chip erase will open the chip again";
  const struct {
    std::uint8_t inImage;
    std::string settings, said;
  } cases[] = {
      {0x00, "", closed},
      {0x00, kKeep, kConfigurationKept},
      {0xA5, "", "the CCFG asks for a debug password and none is set (DebugPassword or DebugPasswordHex)"},
      {0xA5, "DebugPassword=x", ""},
      {0xA5, "DebugPasswordFormatList=Hex; DebugPasswordHex=00", ""},
      {0x00, kOverwrite, ""},
      {0x5A, kOverwrite + "; CcfgOverwriteAuthorizationFieldsTypeChoicelist=Debug not allowed", closed}};
  for (const auto& c : cases)
    EXPECT_EQ(Said(kSerin, c.settings, {kMain, Ccfg(c.inImage), kScfg}), c.said) << c.settings;
}

TEST(PreflightTest, RefusesWhatLiesOutsideEveryMemory) {
  EXPECT_EQ(Said(kSerin, "", {At(0x7FF00, 0x150), Ccfg(), kScfg}),
            "! 0x0007ff00..0x0008004f of app runs past the end of MAIN flash (0x00000000..0x0007ffff)");
  EXPECT_EQ(Said(kSerin, "", {At(0x60000000, 3)}),
            "! 0x60000000..0x60000002 of app lies in no memory of serin-s20");
  EXPECT_EQ(Said(kSerin, "", {At(0x60000000, 3)}, {.allowOutside = true}),
            "3 bytes at 0x60000000 lie in no memory of serin-s20; they will be written as RAM data");
}

TEST(PreflightTest, RefusesAVerificationThatComparesNothing) {
  const std::string pages = "FlashPageToggle=1; FlashPages=";
  const std::string fill = "; FlashPagesFilledWith=1; FlashPagesFilledWithValue=0x11";
  const std::string noMain = "a verification begins with MAIN flash, and they hold none of it";
  const Case cases[] = {
      {"", {kMain}, ""},
      {"", {kRam}, kNothing + noMain},
      {"", {Ccfg(), kScfg}, kNothing + noMain},
      {"",
       {kMain, Record()},
       "! the images hold only the user record of the CCFG, which cannot be verified by itself"},
      {"",
       {kMain, kScfg},
       "! the SCFG cannot be compared: a verification stops at the CCFG, and the images hold none"},
      {pages + "1", {kMain}, "left out by FlashPages, and so not compared: 1 of the images' 2 MAIN sectors"},
      {pages + "0-1", {kMain}, kNothing + "all their MAIN sectors are left out by FlashPages"},
      {pages + "0" + fill,
       {kMain},
       kNothing + "all their MAIN sectors are left out by FlashPages and FlashPagesFilledWith"},
      // Half a sector is never left out for what fills it.
      {fill.substr(2), {At(0, 0x400)}, ""}};
  for (const Case& c : cases)
    EXPECT_EQ(Said(kSerin, "ImageVerificationSetting=1; " + c.settings, c.image), c.said) << c.settings;
}

TEST(PreflightTest, JudgesEverySettingByItsName) {
  const std::string kType = "CcfgOverwriteAuthorizationFieldsTypeChoicelist";
  const std::string kId = "CcfgOverwriteAuthorizationFieldsPasswordId";
  const std::string kHash = "CcfgOverwriteAuthorizationFieldsPasswordHash";
  const std::string kPages = "FlashPageToggle=1; FlashPages=";
  const std::string kFill = "FlashPagesFilledWith=1; FlashPagesFilledWithValue=";
  const std::string noByte = " is not a byte as 0x and two hexadecimal digits";
  const std::string tooFar = " is out of range: there are 256 sectors, from 0";
  const std::string kOverwrite = "CcfgOverwriteAuthorizationFieldsToggle=1; DebugPassword=x; " + kType +
                                 "=Require debug authentication; " + kId + "=";
  const std::pair<std::string, std::string> cases[] = {
      {kPages + " 2, 4 - 7 ,\t255", ""},
      {kPages + "zz", "! FlashPages: \"zz\" is neither a sector nor a range of sectors"},
      {kPages + "7-4", "! FlashPages: \"7-4\" is no range of sectors"},
      {kPages + "5-", "! FlashPages: \"5-\" is no range of sectors"},
      {kPages + "3,256", "! FlashPages: \"256\"" + tooFar},
      {kPages + "18446744073709551616", "! FlashPages: \"18446744073709551616\"" + tooFar},
      {kPages + " ", "! FlashPages: empty, which would leave out sector 0"},
      {kPages + "5-6-9", "FlashPages: \"5-6-9\" means 5-6"},
      {kPages + "5,",
       "FlashPages: an empty element means sector 0 | left out by FlashPages, but not by the erase: 1 of the "
       "images' 2 MAIN sectors will be blank"},
      {"FlashPages=0", "FlashPages: ignored, because FlashPageToggle is \"0\""},
      {kFill + "0xaF", ""},
      {kFill + "300", "! FlashPagesFilledWithValue: \"300\"" + noByte},
      {kFill + "0x1FF", "! FlashPagesFilledWithValue: \"0x1FF\"" + noByte},
      {kFill + "0", "! FlashPagesFilledWithValue: \"0\"" + noByte},
      {kFill + "12x3", "FlashPagesFilledWithValue: \"12x3\" means 0x12"},
      {kFill + "ab", "FlashPagesFilledWithValue: \"ab\" means 0x00"},
      {kOverwrite + "0123456789abcdef; " + kHash + "=" + std::string(64, 'E'), ""},
      {kOverwrite + "0123456789abcdef0; " + kHash + "=" + std::string(64, 'g'),
       "! " + kId + ": not a number of at most 16 hexadecimal digits, without 0x | ! " + kHash +
           ": not a number of at most 64 hexadecimal digits, without 0x"},
      {kOverwrite + "; " + kHash + "=ab",
       kHash + ": 2 of 64 digits, led by zeros: perhaps no password has this hash"},
      {kId + "=1", kId + ": ignored, because " + kType + " is \"Debug always allowed\""},
      {"DebugPasswordHex=00", "DebugPasswordHex: ignored, because DebugPasswordFormatList is \"Text\""},
      {"DebugPasswordFormatList=Hex; DebugPassword=x",
       "DebugPassword: ignored, because DebugPasswordFormatList is \"Hex\""},
      {"FlashVerboseMode=yes", "! FlashVerboseMode: \"yes\" is neither 1 nor 0"},
      {"DebugPasswordFormatList=hex", "! DebugPasswordFormatList: \"hex\" is none of \"Text\", \"Hex\""}};
  for (const auto& [settings, said] : cases) EXPECT_EQ(Said(kSerin, settings, kAll), said) << settings;
}

TEST(PreflightTest, RefusesADescriptionThatThePluginOrItsOwnChipWouldNotTake) {
  DeviceDescription serin = kSerin;
  serin.map.sectorSize = 0x400;
  serin.map.otp = {};
  EXPECT_EQ(Said(serin, "", kAll, {.chipIsDescribed = true}),
            "! serin-s20: the description says MAIN sectors of 1024 bytes, its chip has 2048"
            " | ! serin-s20: the description says OTP none, its chip has 0x4c000800..0x4c000bff");
  EXPECT_EQ(Said(serin, "", kAll), "");
  for (FlashProperty& property : serin.properties)
    if (property.name == "FlashEraseSetting") property.choices.push_back(property.value = "All");
  std::erase_if(serin.properties, [](const FlashProperty& each) { return each.name == "FlashPageToggle"; });
  EXPECT_EQ(Said(serin, "", {kRam}),
            "! FlashPageToggle: serin-s20 has no such setting, and every load reads it"
            " | ! FlashEraseSetting: \"All\" is no erase that the plug-in knows");
}

TEST(PreflightTest, RefusesAConfigurationThatThePermissionCheckWouldRefuse) {
  ImageSegment ccfg = Ccfg();
  ccfg.data[0x10] = 0xA5;
  ccfg.data[0x11] = 0x3A;
  EXPECT_EQ(
      Said(kSerin, "", {kMain, ccfg, kScfg}),
      "! the CCFG of the images could lock the chip: chipErase is 0x5 and not 0xa, enterSaci is 0x3 and not "
      "0xa (PermissionsSetting=0 lets it pass)");
  EXPECT_EQ(Said(kSerin, "PermissionsSetting=0", {kMain, ccfg, kScfg}), "");
  // Newer parts have their SCFG checked, too.
  EXPECT_EQ(Said(kCorvel, "", kAll),
            "! the SCFG of the images could lock the chip: updateKeyRing is 0x1 and not 0xa, updateScfg is "
            "0x1 and not 0xa (PermissionsSetting=0 lets it pass)");
}

}  // namespace
}  // namespace host
