// The configuration sectors and the OTP byte by byte: stores, computed CRC fields, overwritten authorization,
// the key ring cut to the entries in use.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstring>

#include "ConfigurationStore.h"
#include "Crc32.h"
#include "DeviceTest.h"
#include "ErrorOf.h"
#include "ScfgKeyRing.h"

namespace {

using ConfigurationTest = DeviceTest;

const std::string kGiven = "ScfgSize=0; ";
const std::string kLoadCommands = "12/1 17/3 1 5";

TEST(Crc32, AnswersThePublishedCheckValue) {
  const std::string digits = "123456789";
  EXPECT_EQ(CalcCRC32(reinterpret_cast<const std::uint8_t*>(digits.data()), 9), 0xCBF43926U);
}

RC_GTEST_PROP(Crc32, IsTheOneOfTheDefinition, (const Bytes& data)) {
  RC_ASSERT(CalcCRC32(data.data(), static_cast<std::uint32_t>(data.size())) == ReferenceCrc32(data));
}

// A store of four bytes 0 that stands for address 0x100.
TEST(ConfigurationStore, TakesWhatFits) {
  const struct {
    std::uint32_t address;
    Bytes data, store;
  } rows[] = {{0x100, {1, 2, 3, 4}, {1, 2, 3, 4}}, {0x102, {5}, {0, 0, 5, 0}},
              {0x103, {6, 7, 8}, {0, 0, 0, 6}},    {0x104, {9}, {0, 0, 0, 0}},
              {0x101, {}, {0, 0, 0, 0}},           {0xFFFFFFFF, {9}, {0, 0, 0, 0}},
              {0x0FF, {1, 2}, {0, 0, 0, 0}},       {0x100, {1, 2, 3, 4, 5}, {1, 2, 3, 4}}};
  for (const auto& row : rows) {
    Bytes store(4);
    EXPECT_EQ(ErrorOf([&] { CopyIntoStore(store, 0x100, row.data, row.address); }),
              row.address < 0x100 ? "Image data at 0x000000FF lies below its region" : "ok");
    EXPECT_EQ(store, row.store) << std::hex << row.address;
  }
}

TEST_F(ConfigurationTest, TheListedCrcFieldsAreRecomputedAndEachChangeTold) {
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

TEST(ScfgKeyRing, AKeyIsAnyEntryThatIsNotAllOnes) {
  for (const std::size_t byte : {276U, 319U}) {  // the second entry's first and last
    Bytes scfg(kScfgSize, 0xFF);
    scfg[232] = 0;
    scfg[byte] = 0xFE;
    ReduceScfgKeyRing(scfg);
    EXPECT_EQ(scfg.size(), 320U);
  }
  for (const std::size_t size : {0U, 1U, 231U, 232U, 276U, 1023U}) {  // too short for the ring
    Bytes scfg(size, 0xFF);
    ReduceScfgKeyRing(scfg);
    EXPECT_EQ(scfg.size(), size);
  }
}

TEST_F(ConfigurationTest, TheCrcFieldOfTheScfgIsRenewedOnRequestByThePartsOwnRange) {
  const struct {
    const char* part;
    std::uint32_t offset, length;
  } rows[] = {
      {"Serin", 0, 0xE4}, {"HighPg1", 0, 0xE4}, {"HighPg2", 4, 0xDC}, {"HighNew", 4, 0xDC}, {"Mid", 4, 0xDC}};
  const Bytes scfg = Pattern(kScfgSize);
  for (const auto& row : rows) {
    Play("ScfgOverwriteCrcsToggle=1; part=" + std::string(row.part) + "; start c s");
    const std::uint32_t field = row.offset + row.length;
    const std::uint32_t crc = Crc(scfg, row.offset, row.length);
    EXPECT_THAT(
        Play(". end"),
        testing::StartsWith("12/1 17/3 | I Updating CRC32 field scfg.crc32 @ address 0x" +
                            Hex8(kScfg + field) + ", based on data in the range [0x" +
                            Hex8(kScfg + row.offset) + ", 0x" + Hex8(kScfg + field - 1) +
                            "]. Value changes from 0x" + Hex8(WordAt(scfg, field)) + " to 0x" + Hex8(crc)));
    EXPECT_EQ(WordAt(Payload(26), field), crc);
    EXPECT_EQ(Command(27).words.at(1), crc);
  }
}

}  // namespace
