// The CCFG as it is programmed: computed CRC fields, the user record, overwritten debug authorization.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstring>

#include "Crc32.h"
#include "DeviceTest.h"

namespace {

struct CcfgTest : DeviceTest {
  CcfgTest() {
    host.properties["ScfgSize"] = "0";
    host.bootStatus = 0x81;
  }

  std::string LoadCcfg(const Bytes& ccfg) {
    Device();
    EXPECT_EQ(Start(), "ok");
    const std::string written = Write(kCcfg, ccfg);
    host.ForgetCalls();
    return written == "ok" ? End() : written;
  }
};

TEST(Crc32, AnswersThePublishedCheckValue) {
  const std::string digits = "123456789";
  EXPECT_EQ(CalcCRC32(reinterpret_cast<const std::uint8_t*>(digits.data()), 9), 0xCBF43926U);
  EXPECT_EQ(CalcCRC32(nullptr, 0), 0U);
}

RC_GTEST_PROP(Crc32, IsTheOneOfTheDefinition, (const Bytes& data)) {
  RC_ASSERT(CalcCRC32(data.data(), static_cast<std::uint32_t>(data.size())) == ReferenceCrc32(data));
}

TEST_F(CcfgTest, PiecesLandAtTheirOffsetsAndTheRestIsZero) {
  Device();
  EXPECT_EQ(Start(), "ok");
  EXPECT_EQ(Write(kCcfg + 0x7D0, {0x5A, 2, 3, 4}), "ok");
  EXPECT_EQ(Write(kCcfg + 8, {5, 6, 7, 8}), "ok");
  EXPECT_EQ(Write(kCcfg + 10, {9}), "ok");
  EXPECT_EQ(End(), "ok");
  Bytes expected(kCcfgSize);
  std::copy_n(Bytes{0x5A, 2, 3, 4}.begin(), 4, expected.begin() + 0x7D0);
  std::copy_n(Bytes{5, 6, 9, 8}.begin(), 4, expected.begin() + 8);
  EXPECT_EQ(Payload(12), expected);
}

TEST_F(CcfgTest, SettingsChooseTheFlagsOfBothCommands) {
  const struct {
    std::map<std::string, std::string> settings;
    std::uint16_t program, verify;  // bit 0 of either, bit 1 of verify
  } cases[] = {
      {{}, 1, 3},
      {{{"CcfgSkipProgrammingUserRecord", "1"}}, 1, 3},
      {{{"CcfgSkipProgrammingUserRecord", "0"}}, 0, 1},
      {{{"CcfgSkipProgrammingUserRecord", "0"}, {"CcfgVerifyUserRecordCrcToggle", "0"}}, 0, 3},
      {{{"CcfgVerifyUserRecordCrcToggle", "0"}}, 1, 3},
  };
  const auto defaults = host.properties;
  for (const auto& c : cases) {
    host.properties = defaults;
    for (const auto& [name, value] : c.settings) host.properties[name] = value;
    EXPECT_EQ(LoadCcfg(OpenCcfg()), "ok");
    EXPECT_EQ(Command(12).Specific(), c.program) << testing::PrintToString(c.settings);
    EXPECT_EQ(Command(17).Specific(), c.verify) << testing::PrintToString(c.settings);
  }
}

TEST_F(CcfgTest, RecomputesTheListedFieldsAndTellsEachChange) {
  host.properties["CcfgOverwriteCrcsToggle"] = "1";
  Bytes ccfg = OpenCcfg();
  Bytes expected = ccfg;
  const auto store = [](Bytes& bytes, std::size_t offset, std::uint32_t word) {
    std::memcpy(bytes.data() + offset, &word, 4);
  };
  store(ccfg, 0x6FC, Crc(ccfg, 0x10, 0x6EC));  // right already: not told
  expected = ccfg;
  store(expected, 0xC, Crc(ccfg, 0, 0xC));
  store(expected, 0x7FC, Crc(ccfg, 0x7D0, 0x2C));
  EXPECT_EQ(LoadCcfg(ccfg), "ok");
  EXPECT_EQ(Payload(12), expected);  // the user record's word keeps its value: it is not programmed
  EXPECT_EQ(
      Messages(),
      "Info Updating CRC32 field ccfg.bootCfg.crc32 @ address 0x4E02000C, based on data in the range "
      "[0x4E020000, 0x4E02000B]. Value changes from 0x" +
          Hex8(WordAt(ccfg, 0xC)) + " to 0x" + Hex8(WordAt(expected, 0xC)) +
          "\nInfo Updating CRC32 field ccfg.debugCfg.crc32 @ address 0x4E0207FC, based on data in the range "
          "[0x4E0207D0, 0x4E0207FB]. Value changes from 0x" +
          Hex8(WordAt(ccfg, 0x7FC)) + " to 0x" + Hex8(WordAt(expected, 0x7FC)));
}

TEST_F(CcfgTest, TheUserRecordsCrcIsRecomputedWhenItIsProgrammed) {
  host.properties["CcfgOverwriteCrcsToggle"] = "1";
  host.properties["CcfgSkipProgrammingUserRecord"] = "0";
  host.properties["CcfgCrcFields"] = "ccfg.userRecord.crc32";
  const Bytes ccfg = OpenCcfg();
  EXPECT_EQ(LoadCcfg(ccfg), "ok");
  EXPECT_EQ(WordAt(Payload(12), 0x77C), Crc(ccfg, 0x700, 0x7C));
  EXPECT_EQ(WordAt(Payload(12), 0xC), WordAt(ccfg, 0xC));
}

TEST_F(CcfgTest, RangesMustFit) {
  const auto refusal = [](const std::string& name) {
    return "Offset and length defined in flash property \"" + name + "\" does not fit in CCFG";
  };
  const struct {
    std::string name, range, error;
  } cases[] = {
      {"ccfg.crc32Info", "0x0:0x800", "ok"},
      {"ccfg.crc32Info", "0x1:0x800", refusal("ccfg.crc32Info")},
      {"ccfg.debugCfg.crc32Info", "0x801:0", refusal("ccfg.debugCfg.crc32Info")},
  };
  const auto defaults = host.properties;
  for (const auto& c : cases) {
    host.properties = defaults;
    host.properties[c.name] = c.range;
    EXPECT_EQ(LoadCcfg(OpenCcfg()), c.error) << c.range;
  }
  host.properties = defaults;
  host.properties.erase("ccfg.bootCfg.crc32Info");
  EXPECT_EQ(LoadCcfg(OpenCcfg()),
            "Failed to read property \"ccfg.bootCfg.crc32Info\" from Flash Properties XML.");

  // What would reach past the sector when a field is renewed is refused, whatever the arithmetic says.
  host.properties = defaults;
  host.properties["CcfgOverwriteCrcsToggle"] = "1";
  for (const char* range :
       {"0x0:0x800", "0x0:0x7FD", "0xFFFFFFF0:0x20", "0x10:0xFFFFFFFC", "0x800:0x0", "0x10"}) {
    host.properties["ccfg.crc32Info"] = range;
    EXPECT_NE(LoadCcfg(OpenCcfg()), "ok") << range;
    EXPECT_EQ(Saci(), "") << range;
  }
}

TEST_F(CcfgTest, VerificationSendsNoProgramCommandAndSkipsTheUserRecord) {
  host.properties["ImageVerificationSetting"] = "1";
  host.properties["CcfgSkipProgrammingUserRecord"] = "0";
  Device();
  EXPECT_EQ(Start(), "ok");
  EXPECT_EQ(Write(0, Pattern(4)), "ok");
  EXPECT_EQ(Write(kCcfg, OpenCcfg()), "ok");
  host.ForgetCalls();
  EXPECT_EQ(End(), "ok");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{17}));
  EXPECT_EQ(Command(17).Specific(), 3U);
}

TEST_F(CcfgTest, AUserRecordIsSentAtOncePaddedWithZeros) {
  const struct {
    std::size_t length;
    const char* verifyToggle;
    const char* verification;
  } cases[] = {
      {kUserRecordSize, nullptr, "SACI 17/0000 00000000 00000000 00000000 00000000"},
      {5, "1", "SACI 17/0000 00000000 00000000 00000000 00000000"},
      {5, "0", "SACI 17/0002 00000000 00000000 00000000 00000000"},
  };
  for (const auto& c : cases) {
    if (c.verifyToggle == nullptr)
      host.properties.erase("CcfgVerifyUserRecordCrcToggle");
    else
      host.properties["CcfgVerifyUserRecordCrcToggle"] = c.verifyToggle;
    Device();
    EXPECT_EQ(Start(), "ok");
    host.ForgetCalls();
    EXPECT_EQ(Write(kUserRecord, Pattern(c.length)), "ok");
    EXPECT_EQ(Saci(), std::string("SACI 1/0000, SACI 13/0000 34 words, ") + c.verification);
    Bytes expected = Pattern(c.length);
    expected.resize(kUserRecordSize);
    EXPECT_EQ(Payload(13), expected);
  }
}

TEST_F(CcfgTest, AUserRecordIsOnlyVerifiedWhenNothingIsToBeProgrammed) {
  host.properties["ImageVerificationSetting"] = "1";
  EXPECT_EQ(Start(), "ok");
  EXPECT_EQ(Write(kUserRecord, Pattern(8)), "ok");
  EXPECT_EQ(host.CommandIds(), (std::vector<std::uint8_t>{1, 17}));
}

TEST_F(CcfgTest, ARefusedUserRecordIsTold) {
  const struct {
    std::uint8_t command;
    const char* error;
  } cases[] = {{13, "Error when programming CCFG user record - Flash hardware FSM error"},
               {17, "Error when verifying CCFG - Flash hardware FSM error"}};
  for (const auto& c : cases) {
    EXPECT_EQ(Start(), "ok");
    host.ReplyOnce(c.command, {.result = 0x84});
    EXPECT_EQ(Write(kUserRecord, Pattern(8)), c.error);
  }
}

TEST_F(CcfgTest, ASectorTooSmallForAuthorizationFailsAtTheEnd) {
  host.properties["CcfgSize"] = "0x2C";
  for (const char* name : {"ccfg.bootCfg.crc32Info", "ccfg.crc32Info", "ccfg.debugCfg.crc32Info"})
    host.properties[name] = "0:4";
  host.properties["ccfg.userRecord.crc32Info"] = "8:4";
  host.ccfgSize = 0x2C;
  EXPECT_NE(LoadCcfg(Pattern(0x2C)), "ok");
  host.properties["CcfgOverwriteAuthorizationFieldsToggle"] = "1";
  EXPECT_NE(LoadCcfg(Pattern(0x2C)), "ok");
  EXPECT_EQ(Saci(), "");
}

struct AuthorizationTest : CcfgTest {
  AuthorizationTest() { host.properties["CcfgOverwriteAuthorizationFieldsToggle"] = "1"; }

  std::string LoadWith(const std::string& type, const std::string& id, const std::string& hash) {
    host.properties["CcfgOverwriteAuthorizationFieldsTypeChoicelist"] = type;
    host.properties["CcfgOverwriteAuthorizationFieldsPasswordId"] = id;
    host.properties["CcfgOverwriteAuthorizationFieldsPasswordHash"] = hash;
    host.properties["CcfgCrcFields"] = "ccfg.debugCfg.crc32";
    return LoadCcfg(OpenCcfg());
  }
};

const std::string kHash = "000102030405060708090a0b0c0d0e0f101112131415161718191A1B1C1D1E1F";

TEST_F(AuthorizationTest, FieldsAreWrittenAndTheirCrcIsRenewed) {
  Bytes hash(32);
  for (std::uint8_t i = 0; i < 32; ++i) hash[i] = i;
  Bytes shortHash = {0x0F};  // 63 digits: the first byte has one of its own
  shortHash.insert(shortHash.end(), 31, 0xFF);
  const struct {
    const char* type;
    std::string id, hash;
    std::uint8_t typeByte;
    Bytes idBytes, hashBytes;  // empty: as the image had them
  } cases[] = {
      {"Debug always allowed", "nonsense", "nonsense", 0x5A, {}, {}},
      {"Debug not allowed", "1", "2", 0x00, {}, {}},
      {"Require debug authentication", "1A2B", kHash, 0xA5, {0, 0, 0, 0, 0, 0, 0x1A, 0x2B}, hash},
      {"Require debug authentication",
       "0123456789abcDEF",
       std::string(63, 'f'),
       0xA5,
       {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF},
       shortHash},
      {"Require debug authentication", "", "", 0xA5, Bytes(8), Bytes(32)},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(LoadWith(c.type, c.id, c.hash), "ok");
    Bytes expected = OpenCcfg();
    expected[kAuthorizationType] = c.typeByte;
    std::copy(c.idBytes.begin(), c.idBytes.end(), expected.begin() + kCcfgSize - 44);
    std::copy(c.hashBytes.begin(), c.hashBytes.end(), expected.begin() + kCcfgSize - 36);
    const std::uint32_t crc = Crc(expected, 0x7D0, 0x2C);
    std::memcpy(expected.data() + 0x7FC, &crc, 4);
    EXPECT_EQ(Payload(12), expected) << c.type;
  }
}

// A description can be read anew while a CCFG is stored.
TEST_F(AuthorizationTest, FieldsLieAtTheEndOfTheChipsSectorOrNowhere) {
  for (const char* name : {"ccfg.bootCfg.crc32Info", "ccfg.crc32Info", "ccfg.debugCfg.crc32Info"})
    host.properties[name] = "0:4";
  host.properties["ccfg.userRecord.crc32Info"] = "8:4";
  host.properties["CcfgOverwriteAuthorizationFieldsTypeChoicelist"] = "Require debug authentication";
  host.properties["CcfgOverwriteAuthorizationFieldsPasswordHash"] = kHash;
  host.properties["CcfgCrcFields"] = "ccfg.crc32";
  const struct {
    const char *stored, *chip;
    bool fits;
  } rows[] = {{"800", "400", true}, {"400", "404", true}, {"400", "405", false}, {"400", "800", false}};
  for (const auto& row : rows) {
    host.properties["CcfgSize"] = row.stored;
    EXPECT_EQ(Device().Initialize(), "ok");
    EXPECT_EQ(Start(), "ok");
    EXPECT_EQ(Write(kCcfg, {1}), "ok");
    host.properties["CcfgSize"] = row.chip;
    host.ccfgSize = static_cast<std::uint32_t>(std::stoul(row.chip, nullptr, 16));
    EXPECT_EQ(Device().Initialize(), "ok");
    host.ForgetCalls();
    EXPECT_EQ(End() == "ok", row.fits) << row.chip;
    if (!row.fits) {
      EXPECT_EQ(Saci(), "");
      continue;
    }
    const Bytes sent = Payload(12);
    EXPECT_EQ(sent.at(host.ccfgSize - 48), 0xA5);
    EXPECT_EQ(sent.at(host.ccfgSize - 5), 0x1F) << "the end of the hash";
    EXPECT_EQ(std::count(sent.begin(), sent.end(), 0xA5), 1);
  }
}

TEST_F(AuthorizationTest, ABadValueIsToldAndTheImageStays) {
  const std::string badId =
      "Error Password ID property must be 64-bit hex-formatted value. Skipping overwriting Debug "
      "Authorization Configuration.";
  const std::string badHash =
      "Error Password Hash property must be valid hex-formatted SHA256 hash.\nSkipping overwriting Debug "
      "Authorization Configuration.";
  const std::string badType =
      "Error Property 'CcfgOverwriteAuthorizationFieldsTypeChoicelist' in Flash Properties XML contains "
      "unexpected value.\nSkipping overwriting Debug Authorization Configuration.";
  const char* required = "Require debug authentication";
  const struct {
    const char* type;
    std::string id, hash, told;
  } cases[] = {
      {"debug not allowed", "", "", badType},
      {"", "", "", badType},
      {required, std::string(17, '1'), kHash, badId},
      {required, "0x1A", kHash, badId},
      {required, " 1", kHash, badId},
      {required, "1", std::string(65, '0'), badHash},
      {required, "1", "no hash", badHash},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(LoadWith(c.type, c.id, c.hash), "ok");
    EXPECT_EQ(Messages(), c.told);
    EXPECT_EQ(Payload(12), OpenCcfg()) << c.told;
  }
}

TEST_F(AuthorizationTest, AVerificationComparesWithTheOverwrittenFields) {
  host.properties["ImageVerificationSetting"] = "1";
  host.properties["CcfgOverwriteAuthorizationFieldsTypeChoicelist"] = "Debug not allowed";
  EXPECT_EQ(Start(), "ok");
  EXPECT_EQ(Write(0, Pattern(4)), "ok");
  EXPECT_EQ(Write(kCcfg, OpenCcfg()), "ok");
  EXPECT_EQ(End(), "ok");
  Bytes overwritten = OpenCcfg();
  overwritten[kAuthorizationType] = 0;
  EXPECT_EQ(Command(17).words.at(4), Crc(overwritten, 0x7D0, 0x2C));
}

TEST_F(AuthorizationTest, DebugNotAllowedLocksTheEndOfTheLoad) {
  EXPECT_EQ(LoadWith("Debug not allowed", "", ""), "ok");
  EXPECT_EQ(Plot().back(), "Info Debugging Interface is Locked!");
}

}  // namespace
