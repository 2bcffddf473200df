// Settings that would lock the user out are refused before anything is stored.

#include <memory>

#include "DeviceTest.h"
#include "PermissionList.h"

namespace {

std::string Lock(const std::string& region, const std::string& settings) {
  return "! The " + region +
         " contain permission settings that can lock the device for further debugging and flash updates. " +
         settings +
         " If current permission settings was intended, the \"Permission check\" option must be disabled to "
         "program current settings.";
}

std::string Setting(const std::string& name, const std::string& reading, const std::string& expecting) {
  return " Permission setting name: " + name + ", reading 0x" + reading + ", expecting 0x" + expecting + ".";
}

std::string CcfgLock(const std::string& settings) {
  return Lock("Custom Configuration (CCFG)", settings);
}

// A piece has 0xA7 at offset 1 and 0x40 at 2; offsets count from the piece.
TEST(Permissions, ComparesTheListedNibbles) {
  const auto badFormat = [](const std::string& offset) {
    return "Invalid format of the Permissions property: \"" + offset +
           "\". The offset value should be on the format \"0x12[L|H]\"";
  };
  const std::string locked = CcfgLock(Setting("Lock", "7", "8"));
  const std::string other = Setting("Other", "4", "0");
  const struct {
    std::string list, outcome;
  } rows[] = {
      {"", ""},
      {"Lock:0x01L:7", ""},
      {"Lock:0x01H:0xA", ""},
      {"Lock:0x01H:10,Other:0x02L:0,Third:0x02H:04", ""},
      {"Lock:0x01H:0x5", CcfgLock(Setting("Lock", "a", "5"))},
      {"Lock:0x01L:010", locked},
      {"Lock:0x01l:8", locked},
      {"Lock:0x01h:8", locked},  // not "H": the low nibble
      {"Lock:0x01:8", locked},
      {"Lock:0x013L:8", locked},  // two digits count
      {"Lock:0x01L:0x1F", CcfgLock(Setting("Lock", "7", "1f"))},
      {"First:0x01H:5,Fine:0x01L:7,Second:0x02H:0",
       CcfgLock(Setting("First", "a", "5") + Setting("Second", "4", "0"))},
      {"Lock:0x00L:15,Far:0x03L:5,Farther:0xFFH:5",
       ""},  // offset 0 is never compared, nor is what is not there
      {"Lock:12H:5", "! " + badFormat("12H")},
      {"Lock:0X12H:5", "! " + badFormat("0X12H")},
      {"Lock:12H:5,Other:0x02H:0", "! " + badFormat("12H") + CcfgLock(other).substr(2)},
      {"Lock:0x01L:seven", "! Invalid format of the Permissions property: \"seven\" is not a number"},
  };
  for (const auto& row : rows) {
    Bench bench;
    bench.Play(kNoErase + "start m .; CcfgPermissions=" + row.list);
    EXPECT_EQ(bench.Play("4E020100:00A740"), row.outcome) << row.list;
  }
  for (const std::string list : {"Lock", "Lock:0x01L", "Lock:0x01L:7,", ","}) {
    Bench bench;
    EXPECT_NE(bench.Play("start m; CcfgPermissions=" + list + "; . 4E020100:00A740"), "") << list;
  }
}

TEST(Permissions, AreCheckedWhereThePartAndTheUserWantIt) {
  const std::string ccfg = CcfgLock(Setting("Lock", "0", "f"));
  const std::string scfg = Lock("Security Configuration (SCFG)", Setting("Lock", "0", "f"));
  const std::string both = ccfg + " | " + scfg, load = "; start m . 4E020000:0101 4E040000:0101";
  const std::vector<Row> plays = {
      {"part=Serin" + load, ccfg},
      {"part=HighPg1" + load, ccfg},
      {"part=HighPg2" + load, both},
      {"part=HighNew" + load, both},
      {"part=Mid" + load, both},
      {"-PermissionsSetting; part=Mid" + load, both},
      {"PermissionsSetting=0; part=Mid" + load, ""},
      {"PermissionsSetting=true; part=Mid" + load, ""},
  };
  ExpectPlays("CcfgPermissions=Lock:0x01H:0xf; ScfgPermissions=Lock:0x01H:0xf; ", plays);
}

TEST_F(DeviceTest, ARefusedPieceIsNotStored) {
  Play("CcfgPermissions=Lock:0x01L:0; start 4E020000:0000 4E020000:0101 . end");
  EXPECT_EQ(Payload(12), Bytes(kCcfgSize));
  Play("start 4E020000:0101 . end");  // nothing was stored, so nothing is programmed
  EXPECT_EQ(host.CommandIds(), (Bytes{1, 5}));
}

// Seen by a sanitizer.
TEST(PermissionList, NeverReadsPastThePiece) {
  const auto piece = std::make_unique<std::uint8_t[]>(2);
  EXPECT_EQ(PermissionObjections("Far:0x02L:5,Farther:0xFFH:5", "CCFG", {piece.get(), 2}), "");
}

}  // namespace
