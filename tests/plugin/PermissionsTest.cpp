// Settings that would lock the user out are refused before anything is stored.

#include <memory>

#include "DeviceTest.h"
#include "PermissionList.h"

namespace {

const std::string kCcfgLock =
    "The Custom Configuration (CCFG) contain permission settings that can lock the device for further "
    "debugging and flash updates. ";
const std::string kHint =
    " If current permission settings was intended, the \"Permission check\" option must be disabled to "
    "program current settings.";

std::string Setting(const std::string& name, const char* reading, const char* expecting) {
  return " Permission setting name: " + name + ", reading 0x" + reading + ", expecting 0x" + expecting + ".";
}

std::string BadFormat(const std::string& offset) {
  return "Invalid format of the Permissions property: \"" + offset +
         "\". The offset value should be on the format \"0x12[L|H]\"";
}

struct PermissionsTest : DeviceTest {
  PermissionsTest() { host.properties["FlashEraseSetting"] = "Do not erase sectors (program load only)"; }
};

// The piece has 0xA7 at offset 0x12 and 0x40 at 0x13.
TEST_F(PermissionsTest, ComparesTheListedNibbles) {
  const struct {
    const char* list;
    std::string outcome;
  } cases[] = {
      {"", "ok"},
      {"Lock:0x12L:7", "ok"},
      {"Lock:0x12H:0xA", "ok"},
      {"Lock:0x12H:10,Other:0x13L:0,Third:0x13H:04", "ok"},
      {"Lock:0x12H:0x5", kCcfgLock + Setting("Lock", "a", "5") + kHint},
      {"Lock:0x12L:010", kCcfgLock + Setting("Lock", "7", "8") + kHint},
      {"Lock:0x12l:8", kCcfgLock + Setting("Lock", "7", "8") + kHint},
      {"Lock:0x12h:8", kCcfgLock + Setting("Lock", "7", "8") + kHint},  // not "H": the low nibble
      {"Lock:0x12:8", kCcfgLock + Setting("Lock", "7", "8") + kHint},
      {"Lock:0x123L:8", kCcfgLock + Setting("Lock", "7", "8") + kHint},  // two digits count
      {"Lock:0x12L:0x1F", kCcfgLock + Setting("Lock", "7", "1f") + kHint},
      {"First:0x12H:5,Fine:0x12L:7,Second:0x13H:0",
       kCcfgLock + Setting("First", "a", "5") + Setting("Second", "4", "0") + kHint},
      {"Lock:0x00L:15", "ok"},  // offset 0 is never compared
      {"Lock:0x00H:15", "ok"},
      {"Lock:12H:5", BadFormat("12H")},
      {"Lock:0X12H:5", BadFormat("0X12H")},
      {"Lock:12H:5,Other:0x13H:0", BadFormat("12H") + kCcfgLock + Setting("Other", "4", "0") + kHint},
      {"Other:0x13H:0,Lock:12H:5", kCcfgLock + Setting("Other", "4", "0") + BadFormat("12H") + kHint},
  };
  Bytes piece = Pattern(0x20);
  piece[0x12] = 0xA7;
  piece[0x13] = 0x40;
  EXPECT_EQ(Start(), "ok");
  for (const auto& c : cases) {
    host.properties["CcfgPermissions"] = c.list;
    EXPECT_EQ(Write(kCcfg + 0x100, piece), c.outcome) << c.list;  // offsets count from the piece
  }
}

TEST_F(PermissionsTest, AnEntryWithoutItsFieldsFails) {
  EXPECT_EQ(Start(), "ok");
  for (const char* list : {"Lock", "Lock:0x12L", "Lock:0x12L:7,", ",", "Lock:0x12L:seven"}) {
    host.properties["CcfgPermissions"] = list;
    EXPECT_NE(Write(kCcfg, Pattern(0x20)), "ok") << list;
  }
  EXPECT_EQ(Write(kCcfg, Pattern(0x20)),
            "Invalid format of the Permissions property: \"seven\" is not a number");
}

TEST_F(PermissionsTest, ARefusedPieceIsNotStored) {
  host.properties["CcfgPermissions"] = "Lock:0x01L:0";
  EXPECT_EQ(Start(), "ok");
  EXPECT_EQ(Write(kCcfg, {0, 0}), "ok");
  EXPECT_NE(Write(kCcfg, {1, 1}), "ok");
  host.ForgetCalls();
  EXPECT_EQ(End(), "ok");
  EXPECT_EQ(Payload(12), Bytes(kCcfgSize));

  EXPECT_EQ(Start(), "ok");
  EXPECT_NE(Write(kCcfg, {1, 1}), "ok");
  host.ForgetCalls();
  EXPECT_EQ(End(), "ok");  // nothing was stored, so nothing is programmed
  const std::vector<std::uint8_t> ids = host.CommandIds();
  EXPECT_EQ(std::count(ids.begin(), ids.end(), 12), 0);
}

TEST_F(PermissionsTest, TheUserMaySwitchTheCheckOff) {
  for (const char* region : {"CcfgPermissions", "ScfgPermissions"}) host.properties[region] = "Lock:0x01L:0";
  const struct {
    const char* setting;
    bool checked;
  } cases[] = {{"0", false}, {"1", true}, {nullptr, true}, {"true", false}};
  Be(Part::CorvelMid);
  for (const auto& c : cases) {
    host.properties.erase("PermissionsSetting");
    if (c.setting != nullptr) host.properties["PermissionsSetting"] = c.setting;
    EXPECT_EQ(Start(), "ok");
    EXPECT_EQ(Write(kCcfg, {1, 1}) == "ok", !c.checked);
    EXPECT_EQ(Write(kScfg, {1, 1}) == "ok", !c.checked);
  }
}

TEST_F(PermissionsTest, ScfgIsCheckedOnLaterCorvelsOnly) {
  host.properties["ScfgPermissions"] = "Lock:0x01H:0xf";
  const std::string refusal =
      "The Security Configuration (SCFG) contain permission settings that can lock the device for further "
      "debugging and flash updates. " +
      Setting("Lock", "0", "f") + kHint;
  const struct {
    Part part;
    std::string outcome;
  } cases[] = {{Part::Serin, "ok"},
               {Part::CorvelHighPg1, "ok"},
               {Part::CorvelHighPg2, refusal},
               {Part::CorvelHighNew, refusal},
               {Part::CorvelMid, refusal}};
  for (const auto& c : cases) {
    Be(c.part);
    EXPECT_EQ(Start(), "ok");
    EXPECT_EQ(Write(kScfg, {1, 1}), c.outcome) << Hex8(static_cast<std::uint32_t>(c.part));
  }
}

// An offset behind the end of a short piece has no byte to compare.
TEST(PermissionList, NeverReadsPastThePiece) {
  const auto piece = std::make_unique<std::uint8_t[]>(2);
  piece[1] = 0x12;
  const std::span<const std::uint8_t> data(piece.get(), 2);
  EXPECT_EQ(PermissionObjections("Far:0x02L:5,Farther:0xFFH:5,Near:0x01L:2", "CCFG", data), "");
  EXPECT_NE(PermissionObjections("Near:0x01L:3", "CCFG", data), "");
}

}  // namespace
