#include "host/device/Settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <tuple>

#include "InputErrorOf.h"
#include "host/device/InputError.h"
#include "host/device/Number.h"
#include "host/device/Passwords.h"
#include "host/device/Text.h"

namespace host {
namespace {

DeviceDescription Device() {
  DeviceDescription device;
  device.name = "part";
  device.properties = {{"SectorSize", PropertyType::Fixed, "0x800", {}, "", "", 0},
                       {"DeviceInfoRevision", PropertyType::Display, "--", {}, "", "", 0},
                       {"FlashPages", PropertyType::Text, "", {}, "", "", 0},
                       {"FlashPageToggle", PropertyType::Bool, "0", {}, "", "", 0},
                       {"Erase", PropertyType::Choice, "Keep", {"Chip Erase", "Keep"}, "", "", 0},
                       {"Hash", PropertyType::Hex, "", {}, "", "", 4},
                       {"DebugPasswordFormatList", PropertyType::Choice, "Text", {"Text", "Hex"}, "", "", 0},
                       {"DebugPassword", PropertyType::Password, "", {}, "", "", 0},
                       {"DebugPasswordHex", PropertyType::Password, "", {}, "", "", 0}};
  return device;
}

TEST(Settings, ArePutAsThePluginSpellsThem) {
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"FlashPageToggle", "TRUE", "1"},
      {"FlashPageToggle", "yes", "1"},
      {"FlashPageToggle", "off", "0"},
      {"FlashPageToggle", "no", "0"},
      {"FlashPageToggle", "false", "0"},
      {"Erase", "chip erase", "Chip Erase"},
      {"FlashPages", "a=b", "a=b"},
      {"Hash", "00fF", "00fF"},
      {"Hash", "", ""},
      {"DebugPassword", "\t=", "\t="},
      {"DebugPasswordHex", "00fF", "00fF"},
      {"DebugPassword", std::string(64, 'x'), std::string(64, 'x')},
      {"DebugPasswordHex", std::string(128, 'a'), std::string(128, 'a')}};
  for (const auto& [name, value, put] : cases) {
    PropertyStore settings;
    ApplySetting(Device(), settings, name + "=" + value);
    EXPECT_EQ(settings.Get(name, "none"), put) << name;
  }
}

TEST(Settings, BadOnesAreRefusedAndPasswordsNotRepeated) {
  const std::string kPass = "; --set-unknown-ok lets it pass";
  const struct {
    std::string assignment, error;
  } cases[] = {
      {"DebugPassword secret", "--set: expected NAME=VALUE"},
      {"=secret", "--set: expected NAME=VALUE"},
      {"FlashPages", "--set FlashPages: expected NAME=VALUE"},
      {"FlashPage=1", "part has no setting \"FlashPage\"; nearest: FlashPages, FlashPageToggle"},
      {"zz=1", "part has no setting \"zz\""},
      {"SectorSize=1", "SectorSize is a fact of the device, not a setting" + kPass},
      {"DeviceInfoRevision=1",
       "DeviceInfoRevision is a value that the plug-in displays, not a setting" + kPass},
      {"FlashPageToggle=", "FlashPageToggle: \"\" is not 1 or 0"},
      {"FlashPageToggle=2", "FlashPageToggle: \"2\" is not 1 or 0"},
      {"Erase=Chip", "Erase: \"Chip\" is not one of \"Chip Erase\", \"Keep\""},
      {"Hash=0x1", "Hash: not at most 4 hexadecimal digits, without 0x"},
      {"Hash=12345", "Hash: not at most 4 hexadecimal digits, without 0x"},
      {"DebugPassword=" + std::string(65, 'x'), "DebugPassword: 65 characters, 64 are the most"},
      {"DebugPasswordHex=0x12", "DebugPasswordHex: not all of it is hexadecimal digits"},
      {"DebugPasswordHex=123", "DebugPasswordHex: 3 digits are no whole number of bytes"},
      {"DebugPasswordHex=" + std::string(130, 'a'), "DebugPasswordHex: 130 digits, 128 are the most"}};
  for (const auto& c : cases) {
    PropertyStore settings;
    EXPECT_EQ(InputErrorOf([&] { ApplySetting(Device(), settings, c.assignment); }), c.error);
    EXPECT_TRUE(settings.All().empty()) << c.assignment;
  }
}

TEST(Settings, FactsAndUnknownNamesPassWhenTold) {
  PropertyStore settings = DefaultSettings(Device());
  for (const char* assignment : {"SectorSize=x", "New=y"})
    ApplySetting(Device(), settings, assignment, Beyond::Allowed);
  EXPECT_EQ(settings.Get("SectorSize"), "x");
  EXPECT_EQ(settings.Get("New"), "y");
  EXPECT_EQ(settings.Get("Erase"), "Keep");
  EXPECT_NE(InputErrorOf([&] { ApplySetting(Device(), settings, "FlashPageToggle=2", Beyond::Allowed); }),
            "no error");
}

TEST(Passwords, TheOneInUseIsTheFormatsOwn) {
  using namespace std::string_literals;
  const struct {
    std::string format, text, hex, setting, bytes, error;
  } cases[] = {{"Text", "zz", "", "zz", "zz", "no error"},
               {"Text", "00", "4142", "00", "00", "no error"},
               {"Hex", "00", "4100fF", "4100fF", "A\0\xff"s, "no error"},
               {"Hex", "", "", "", "", "no error"},
               {"Hex", "zz", "", "", "",
                "DebugPassword is set, but DebugPasswordFormatList is Hex: it would not be used"},
               {"Text", "", "41", "", "",
                "DebugPasswordHex is set, but DebugPasswordFormatList is Text: it would not be used"}};
  for (const auto& c : cases) {
    PropertyStore settings;
    settings.Set("DebugPasswordFormatList", c.format);
    settings.Set("DebugPassword", c.text);
    settings.Set("DebugPasswordHex", c.hex);
    EXPECT_EQ(PasswordInUse(settings).setting, c.setting);
    EXPECT_EQ(PasswordInUse(settings).bytes, c.bytes);
    EXPECT_EQ(InputErrorOf([&] { RequirePasswordInItsFormat(settings); }), c.error);
  }
}

TEST(Text, NearestNamesComeBestFirst) {
  const std::vector<std::string> known = {"DebugPassword", "DebugPasswordHex", "FlashPages",
                                          "FlashPageToggle"};
  using testing::ElementsAre;
  EXPECT_THAT(NearestNames("FlashPage", known, 1), ElementsAre("FlashPages"));
  EXPECT_THAT(NearestNames("flashpagse", known, 1), ElementsAre("FlashPages"));
  EXPECT_THAT(NearestNames("password", known, 5), ElementsAre("DebugPassword", "DebugPasswordHex"));
  EXPECT_THAT(NearestNames("zzzz", known, 3), ElementsAre());
  const std::vector<std::string> brief = {"abcd"};
  EXPECT_THAT(NearestNames("zzcd", brief, 1), ElementsAre("abcd"));
  EXPECT_THAT(NearestNames("zzc", brief, 1), ElementsAre());
}

TEST(Number, IsReadWholeOrNotAtAll) {
  const struct {
    const char* text;
    std::optional<std::uint64_t> number, hexadecimal;
  } cases[] = {{"10", 10, 16},
               {"0x10", 16, 16},
               {"0XfF", 255, 255},
               {"0xFFFFFFFFFFFFFFFF", ~0ull, ~0ull},
               {"fF", {}, 255}};
  for (const auto& c : cases) {
    EXPECT_EQ(ParseNumber(c.text), c.number) << c.text;
    EXPECT_EQ(ParseHexNumber(c.text), c.hexadecimal) << c.text;
  }
  for (const char* none : {"", "0x", "-1", "+1", " 1", "1 ", "0x1G", "0x-1", "0x0x1", "0x10000000000000000"})
    EXPECT_FALSE(ParseNumber(none) || ParseHexNumber(none)) << none;
}

}  // namespace
}  // namespace host
