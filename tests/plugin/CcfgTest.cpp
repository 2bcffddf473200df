// The CCFG as it is programmed: computed CRC fields, the user record, overwritten debug authorization.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstring>

#include "Crc32.h"
#include "DeviceTest.h"

namespace {

const std::string kGiven = "ScfgSize=0; ";
// The load of one CCFG, after its erase and up to its end.
const std::string kLoad = "start c . end; ";
const std::string kLoadCommands = "12/1 17/3 1 5";

TEST(Crc32, AnswersThePublishedCheckValue) {
  const std::string digits = "123456789";
  EXPECT_EQ(CalcCRC32(reinterpret_cast<const std::uint8_t*>(digits.data()), 9), 0xCBF43926U);
}

RC_GTEST_PROP(Crc32, IsTheOneOfTheDefinition, (const Bytes& data)) {
  RC_ASSERT(CalcCRC32(data.data(), static_cast<std::uint32_t>(data.size())) == ReferenceCrc32(data));
}

TEST(Ccfg, SettingsChooseTheFlagsOfItsCommands) {
  const std::vector<Row> plays = {
      {kLoad, kLoadCommands},
      {"CcfgSkipProgrammingUserRecord=1; " + kLoad, kLoadCommands},
      {"CcfgVerifyUserRecordCrcToggle=0; " + kLoad, kLoadCommands},
      {"CcfgSkipProgrammingUserRecord=0; " + kLoad, "12 17/1 1 5"},
      {"CcfgSkipProgrammingUserRecord=0; CcfgVerifyUserRecordCrcToggle=0; " + kLoad, "12 17/3 1 5"},
      {"CcfgSkipProgrammingUserRecord=0; ImageVerificationSetting=1; start m c . end",
       "17/3 | I Image Verification Succeeded!"},
  };
  ExpectPlays(kGiven, plays);
}

TEST(Ccfg, AUserRecordIsSentAtOnce) {
  const std::vector<Row> plays = {
      {"start . u", "1 13 17"},
      {"CcfgVerifyUserRecordCrcToggle=1; start . 4E020700+5", "1 13 17"},
      {"CcfgVerifyUserRecordCrcToggle=0; start . 4E020700+5", "1 13 17/2"},
      {"ImageVerificationSetting=1; start . 4E020700+8", "1 17"},
      {"13!84; start . u", "1 13 | ! Error when programming CCFG user record - Flash hardware FSM error"},
      {"17!84; start . u", "1 13 17 | ! Error when verifying CCFG - Flash hardware FSM error"},
  };
  ExpectPlays(kGiven, plays);
}

TEST(Ccfg, RangesMustFit) {
  const auto refusal = [](const std::string& name) {
    return "! Offset and length defined in flash property \"" + name + "\" does not fit in CCFG";
  };
  const std::string renew = "CcfgOverwriteCrcsToggle=1; ccfg.crc32Info=";
  const std::string tooFar = refusal("ccfg.crc32Info");
  // Nothing may reach past the sector, whatever 32-bit sums say, before anything is sent.
  const std::vector<Row> plays = {
      {"ccfg.crc32Info=0x0:0x800; " + kLoad, kLoadCommands},
      {"ccfg.crc32Info=0x1:0x800; " + kLoad, "12/1 | " + tooFar},
      {"ccfg.debugCfg.crc32Info=0x801:0; " + kLoad, "12/1 | " + refusal("ccfg.debugCfg.crc32Info")},
      {"-ccfg.bootCfg.crc32Info; " + kLoad,
       "12/1 | ! Failed to read property \"ccfg.bootCfg.crc32Info\" from Flash Properties XML."},
      {renew + "0x0:0x800; " + kLoad, tooFar},
      {renew + "0x0:0x7FD; " + kLoad, tooFar},
      {renew + "0x800:0x0; " + kLoad, tooFar},
      {renew + "0xFFFFFFF0:0x20; " + kLoad, tooFar},
      {renew + "0x10:0xFFFFFFFC; " + kLoad, tooFar},
  };
  ExpectPlays(kGiven + "CcfgCrcFields=ccfg.crc32; ", plays);
}

TEST_F(DeviceTest, ASectorTooSmallForAuthorizationFailsAtTheEnd) {
  host.ccfgSize = 0x2C;
  Play(
      "CcfgSize=2C; ccfg.bootCfg.crc32Info=0:4; ccfg.crc32Info=0:4; ccfg.debugCfg.crc32Info=0:4; "
      "ccfg.userRecord.crc32Info=8:4; ScfgSize=0");
  EXPECT_NE(Play("start 4E020000+2C . end").find("12/1 17/3 | ! "), std::string::npos);
  Play("CcfgOverwriteAuthorizationFieldsToggle=1");
  EXPECT_EQ(Play("start 4E020000+2C . end").find("! "), 0U);
}

TEST_F(DeviceTest, PiecesOfTheCcfgLandAtTheirOffsetsAndTheRestIsZero) {
  Play(kGiven + "start 4E0207D0:5A020304 4E020008:05060708 4E02000A:09 . end");
  Bytes expected(kCcfgSize);
  std::memcpy(&expected[0x7D0], "\x5A\x02\x03\x04", 4);
  std::memcpy(&expected[8], "\x05\x06\x09\x08", 4);
  EXPECT_EQ(Payload(12), expected);
}

TEST_F(DeviceTest, AShortUserRecordIsPaddedWithZeros) {
  Play("start 4E020700+5");
  Bytes expected = Pattern(5);
  expected.resize(kUserRecordSize);
  EXPECT_EQ(Payload(13), expected);
}

TEST_F(DeviceTest, TheListedCrcFieldsAreRecomputedAndEachChangeTold) {
  Play(kGiven + "CcfgOverwriteCrcsToggle=1; start");
  Bytes ccfg = OpenCcfg();
  const auto store = [](Bytes& bytes, std::size_t offset, std::uint32_t word) {
    std::memcpy(bytes.data() + offset, &word, 4);
  };
  store(ccfg, 0x6FC, Crc(ccfg, 0x10, 0x6EC));  // right already: not told
  Bytes expected = ccfg;                       // the user record's word keeps its value: it is not programmed
  store(expected, 0xC, Crc(ccfg, 0, 0xC));
  store(expected, 0x7FC, Crc(ccfg, 0x7D0, 0x2C));
  EXPECT_EQ(Device().Write(kCcfg, ccfg), "ok");
  const auto change = [&](std::size_t offset) {
    return "Value changes from 0x" + Hex8(WordAt(ccfg, offset)) + " to 0x" + Hex8(WordAt(expected, offset));
  };
  EXPECT_EQ(Play(". end"),
            "I Updating CRC32 field ccfg.bootCfg.crc32 @ address 0x4E02000C, based on data in the range "
            "[0x4E020000, 0x4E02000B]. " +
                change(0xC) +
                " | I Updating CRC32 field ccfg.debugCfg.crc32 @ address 0x4E0207FC, based on data in the "
                "range [0x4E0207D0, 0x4E0207FB]. " +
                change(0x7FC) + " | " + kLoadCommands);
  EXPECT_EQ(Payload(12), expected);

  Play("CcfgSkipProgrammingUserRecord=0; CcfgCrcFields=ccfg.userRecord.crc32; start c . end");
  EXPECT_EQ(WordAt(Payload(12), 0x77C), Crc(OpenCcfg(), 0x700, 0x7C));
  EXPECT_EQ(WordAt(Payload(12), 0xC), WordAt(OpenCcfg(), 0xC));
}

const std::string kType = "CcfgOverwriteAuthorizationFieldsTypeChoicelist=";
const std::string kId = "; CcfgOverwriteAuthorizationFieldsPasswordId=";
const std::string kHash = "; CcfgOverwriteAuthorizationFieldsPasswordHash=";
const std::string kOverwrite =
    kGiven + "CcfgOverwriteAuthorizationFieldsToggle=1; CcfgCrcFields=ccfg.debugCfg.crc32; ";
const std::string kSomeHash = "000102030405060708090a0b0c0d0e0f101112131415161718191A1B1C1D1E1F";

TEST(CcfgAuthorization, FieldsAreWrittenAndTheirCrcIsRenewed) {
  Bytes hash(32);
  for (std::uint8_t i = 0; i < 32; ++i) hash[i] = i;
  Bytes shortHash(32, 0xFF);  // 63 digits: the first byte has one of its own
  shortHash[0] = 0x0F;
  const std::string required = kType + "Require debug authentication";
  const struct {
    std::string settings;
    std::uint8_t type;
    Bytes id, hash;  // empty: as the image had them
  } rows[] = {
      {kType + "Debug always allowed" + kId + "nonsense", 0x5A, {}, {}},
      {kType + "Debug not allowed" + kId + "1" + kHash + "2", 0x00, {}, {}},
      {required + kId + "1A2B" + kHash + kSomeHash, 0xA5, {0, 0, 0, 0, 0, 0, 0x1A, 0x2B}, hash},
      {required + kId + "0123456789abcDEF" + kHash + std::string(63, 'f'),
       0xA5,
       {0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF},
       shortHash},
      {required, 0xA5, Bytes(8), Bytes(32)},
  };
  for (const auto& row : rows) {
    Bytes expected = OpenCcfg();
    expected[kAuthorizationType] = row.type;
    std::copy(row.id.begin(), row.id.end(), expected.begin() + kCcfgSize - 44);
    std::copy(row.hash.begin(), row.hash.end(), expected.begin() + kCcfgSize - 36);
    const std::uint32_t crc = Crc(expected, 0x7D0, 0x2C);
    std::memcpy(&expected[0x7FC], &crc, 4);
    Bench bench;
    const std::string told = bench.Play(kOverwrite + row.settings + "; start c . end");
    EXPECT_EQ(bench.Payload(12), expected) << row.settings;
    EXPECT_EQ(bench.Command(17).words.at(4), crc) << row.settings;
    EXPECT_EQ(told.ends_with("I Debugging Interface is Locked!"), row.type == 0) << told;
  }
}

TEST(CcfgAuthorization, ABadValueIsToldAndTheImageStays) {
  const std::string skipping = "Skipping overwriting Debug Authorization Configuration.";
  const std::string badId = "E Password ID property must be 64-bit hex-formatted value. " + skipping;
  const std::string badHash =
      "E Password Hash property must be valid hex-formatted SHA256 hash.\n" + skipping;
  const std::string badType =
      "E Property 'CcfgOverwriteAuthorizationFieldsTypeChoicelist' in Flash Properties XML contains "
      "unexpected "
      "value.\n" +
      skipping;
  const std::string required = kType + "Require debug authentication";
  const struct {
    std::string settings, told;
  } rows[] = {
      {kType + "debug not allowed", badType},
      {kType, badType},
      {required + kId + std::string(17, '1') + kHash + kSomeHash, badId},
      {required + kId + "0x1A", badId},
      {required + kId + " 1", badId},
      {required + kId + "1" + kHash + std::string(65, '0'), badHash},
      {required + kId + "1" + kHash + "no hash", badHash},
  };
  for (const auto& row : rows) {
    Bench bench;
    EXPECT_EQ(bench.Play(kOverwrite + row.settings + "; start c . end"), row.told + " | " + kLoadCommands);
    EXPECT_EQ(bench.Payload(12), OpenCcfg()) << row.settings;
  }
}

TEST_F(DeviceTest, AVerificationComparesWithTheOverwrittenFields) {
  Play(kOverwrite + kType + "Debug not allowed; ImageVerificationSetting=1; start m c . end");
  Bytes overwritten = OpenCcfg();
  overwritten[kAuthorizationType] = 0;
  EXPECT_EQ(Command(17).words.at(4), Crc(overwritten, 0x7D0, 0x2C));
}

}  // namespace
