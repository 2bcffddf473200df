#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "ErrorOf.h"
#include "ExposedDevice.h"

namespace {

struct MemoryMapTest : testing::Test {
  // CCFG 0x4E020000..+0x800 with its user record at +0x700, SCFG 0x4E040000..+0x400, OTP 0x4E020800..+0x100.
  FakeHost host;
  ExposedDevice device{host};
};

TEST_F(MemoryMapTest, InitializeReadsTheMapInOrder) {
  host.ForgetCalls();
  device.Initialize();
  host.calls.erase(std::unique(host.calls.begin(), host.calls.end()), host.calls.end());  // looked up twice
  EXPECT_EQ(Joined(host.calls),
            Joined({"GetProperty FlashVerboseMode", "GetProperty SectorSize", "GetProperty CcfgBase",
                    "GetProperty CcfgSize", "GetProperty CcfgUserRecordSize",
                    "GetProperty ccfg.userRecord.crc32Info", "GetProperty ScfgBase", "GetProperty ScfgSize",
                    "GetProperty OtpBase", "GetProperty OtpSize"}));
}

TEST_F(MemoryMapTest, TheFirstSizeThatDoesNotFitIsNamed) {
  const struct {
    const char* property;
    const char* what;
  } rows[] = {{"CcfgSize", "CCFG size"},
              {"SectorSize", "main flash sector size"},
              {"CcfgUserRecordSize", "CCFG user record size"},
              {"ScfgSize", "SCFG size"}};
  for (const auto& row : rows) host.properties[row.property] = "801";
  for (const auto& row : rows) {
    EXPECT_EQ(ErrorOf([&] { device.Initialize(); }),
              std::string("Internal error in Flash Loader: Specified ") + row.what + " is too big.");
    host.properties[row.property] = "80";
  }
  EXPECT_EQ(ErrorOf([&] { device.Initialize(); }), "ok");
}

TEST_F(MemoryMapTest, MainFlashReachesToItsSizeOrToSixteenMegabytes) {
  const struct {
    unsigned address;
    int length;
    bool unknownSize, size512K;
  } rows[] = {
      {0, 0, true, true},
      {0, 0x80000, true, true},
      {0x7FFFF, 1, true, true},
      {0x80000, 0, true, true},
      {0x80000, 1, true, false},
      {0x7F000, 0x1001, true, false},
      {0xFFFFFF, 1, true, false},
      {0, 0x1000000, true, false},
      {0, 0x1000001, false, false},
      {0x1000000, 1, false, false},
      {0x4E020000, 16, false, false},
      {0xFFFFFFFF, 1, true, true},  // the sum has 32 bits
      {0xFFFFFFFF, 0x1002, true, true},
  };
  device.Initialize();
  for (const auto& row : rows)
    EXPECT_EQ(device.AnyRangeWithinMainFlash(row.address, row.length), row.unknownSize) << row.address;
  device.ReadDeviceInfo();
  for (const auto& row : rows)
    EXPECT_EQ(device.AnyRangeWithinMainFlash(row.address, row.length), row.size512K) << row.address;
}

TEST_F(MemoryMapTest, ARegionOfNoSizeHoldsNothing) {
  for (const char* name : {"ScfgSize", "OtpSize", "CcfgSize"}) host.properties[name] = "0";
  device.Initialize();
  for (const unsigned base : {0x4E020000U, 0x4E020800U, 0x4E040000U, 0U}) {
    EXPECT_FALSE(device.AnyRangeWithinCcfg(base, 0));
    EXPECT_FALSE(device.AnyRangeWithinScfg(base, 0));
    EXPECT_FALSE(device.AnyRangeWithinOtp(base, 0));
  }
}

TEST_F(MemoryMapTest, CcfgHoldsWholeRangesAndKnowsItsUserRecord) {
  device.Initialize();
  const struct {
    const char* what;
    unsigned address, length;
    bool within, userRecordOnly;
  } rows[] = {
      {"the sector", 0x4E020000, 0x800, true, false},
      {"one byte before", 0x4E01FFFF, 2, false, false},
      {"one byte too long", 0x4E020000, 0x801, false, false},
      {"its last byte", 0x4E0207FF, 1, true, false},
      {"CCFG and as much as OTP", 0x4E020000, 0x900, true, false},
      {"the same, one byte in", 0x4E020001, 0x900, false, false},
      {"one byte less than that", 0x4E020000, 0x8FF, false, false},
      {"the user record", 0x4E020700, 0x80, true, true},
      {"a part of it", 0x4E020700, 1, true, true},
      {"nothing of it", 0x4E020700, 0, true, true},
      {"one byte more than it", 0x4E020700, 0x81, true, false},
      {"from its second byte", 0x4E020701, 0x10, true, false},
      {"from its start to behind the sector", 0x4E020700, 0x101, false, false},
  };
  for (const auto& row : rows) {
    device.ResetSettings(ProgramState::LoadStart);
    EXPECT_EQ(device.AnyRangeWithinCcfg(row.address, static_cast<int>(row.length)), row.within) << row.what;
    EXPECT_FALSE(device.load.userRecordOnly) << row.what;
    device.NoteUserRecord(row.address, static_cast<int>(row.length));
    EXPECT_EQ(device.load.userRecordOnly, row.userRecordOnly) << row.what;
  }
}

// The length is compared as it came, not as it was cut for the containment test.
TEST_F(MemoryMapTest, ACcfgAndOtpBlockIsNoUserRecord) {
  host.properties["CcfgSize"] = "80";
  host.properties["CcfgUserRecordSize"] = "80";
  host.properties["ccfg.userRecord.crc32Info"] = "0:7C";
  device.Initialize();
  EXPECT_TRUE(device.AnyRangeWithinCcfg(0x4E020000, 0x180));
  device.NoteUserRecord(0x4E020000, 0x180);
  EXPECT_FALSE(device.load.userRecordOnly);
  device.NoteUserRecord(0x4E020000, 0x80);
  EXPECT_TRUE(device.load.userRecordOnly);
}

TEST_F(MemoryMapTest, AMessageIsCutAt511Characters) {
  host.ForgetCalls();
  device.DebugLog("%s", std::string(600, 'x').c_str());
  device.DebugLog("%d%% of %s", 50, std::string(511 - 7, 'y').c_str());
  EXPECT_EQ(Joined(host.calls),
            Joined({"ReportInfo " + std::string(511, 'x'), "ReportInfo 50% of " + std::string(504, 'y')}));
}

}  // namespace
