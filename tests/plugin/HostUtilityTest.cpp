#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "PluginUnderTest.h"

namespace {

struct PropertyTest : testing::Test {
  FakeHost host;
  PluginDevice device{host};

  long Reads(const std::string& property) const {
    return std::count(host.calls.begin(), host.calls.end(), "GetProperty " + property);
  }
};

TEST_F(PropertyTest, ABooleanIsTrueForOneAndNothingElse) {
  const std::string announced = "Info Flashloader: Verbose output enabled.";
  const struct {
    const char* text;
    bool value;
  } rows[] = {{"1", true},   {"0", false},   {"", false},   {"true", false}, {"yes", false},
              {"01", false}, {"0x1", false}, {" 1", false}, {"1 ", false},   {"11", false}};
  for (const auto& row : rows) {
    host.properties["FlashVerboseMode"] = row.text;
    host.ForgetCalls();
    ASSERT_EQ(device.Load(ProgramState::LoadStart), "ok");  // the setting is read anew
    ASSERT_EQ(device.Initialize(), "ok");
    EXPECT_EQ(!host.Plot({announced}).empty(), row.value) << '"' << row.text << '"';
  }
}

TEST_F(PropertyTest, ANumberIsHexadecimalAndCutTo32Bits) {
  const std::string tooBig = "Internal error in Flash Loader: Specified CCFG size is too big.";
  const struct {
    const char* text;
    std::string outcome;  // of a size that may not be above 2048
  } rows[] = {
      {"800", "ok"},       {"0x800", "ok"},     {"0X800", "ok"},   {" 800", "ok"},
      {"800 bytes", "ok"}, {"100000800", "ok"}, {"2048", tooBig},  {"801", tooBig},
      {"-1", tooBig},      {"", "stoul"},       {"size", "stoul"}, {"10000000000000000", "stoul"},
  };
  for (const auto& row : rows) {
    host.properties["CcfgSize"] = row.text;
    EXPECT_EQ(device.Initialize(), row.outcome) << '"' << row.text << '"';
  }
  host.properties["OtpSize"] = "none";  // a default is for what is missing, not for what is malformed
  host.properties["CcfgSize"] = "800";
  EXPECT_EQ(device.Initialize(), "stoul");
}

TEST_F(PropertyTest, AMissingPropertyWithADefaultIsAskedForOnce) {
  for (const char* name : {"ScfgBase", "ScfgSize", "OtpBase", "OtpSize", "FlashVerboseMode"})
    host.properties.erase(name);
  ASSERT_EQ(device.Initialize(), "ok");
  for (const char* name : {"ScfgBase", "ScfgSize", "OtpBase", "OtpSize", "FlashVerboseMode"})
    EXPECT_EQ(Reads(name), 1) << name;
}

TEST_F(PropertyTest, AMissingPropertyWithoutADefaultIsNamed) {
  for (const char* name :
       {"SectorSize", "CcfgBase", "CcfgSize", "CcfgUserRecordSize", "ccfg.userRecord.crc32Info"}) {
    const auto kept = host.properties.extract(name);
    EXPECT_EQ(device.Initialize(), std::string("Unknown property \"") + name + "\"");
    host.properties[name] = kept.mapped();
  }
}

struct HostMemoryTest : testing::Test {
  HostMemoryTest() { host.currentCore = "CS_DAP_0"; }

  FakeHost host;
  IFlashProgrammerUtility2 utility = host.Utility();
};

TEST_F(HostMemoryTest, ARangeIsOneCallWithTheWidthOfItsElements) {
  const Bytes bytes = {0x01, 0x02, 0xFF};
  Words words = {0x11223344, 0x55667788};
  const Debugger::Address address(0x20000000U);
  utility.WriteMemory(bytes.begin(), bytes.end(), address, -2);
  utility.WriteMemory(words.data(), words.data() + 2, address, 1);
  utility.ReadMemory(words.data(), words.data() + 2, address, -1);
  EXPECT_EQ(Joined(host.calls),
            Joined({"WriteMemory CS_DAP_0 @0x20000000 page -2 size 1 x3: 01 02 FF",
                    "WriteMemory CS_DAP_0 @0x20000000 page 1 size 4 x2: 11223344 55667788",
                    "ReadMemory CS_DAP_0 @0x20000000 page -1 size 4 x2"}));
}

TEST_F(HostMemoryTest, AnEmptyRangeMakesNoCall) {
  Bytes nothing;
  unsigned* none = nullptr;
  utility.WriteMemory(nothing.cbegin(), nothing.cend(), Debugger::Address(0U), 0);
  utility.ReadMemory(nothing.begin(), nothing.end(), Debugger::Address(0U), 0);
  utility.WriteMemory(none, none, Debugger::Address(0U), 0);
  EXPECT_EQ(Joined(host.calls), "");
}

}  // namespace
