// The configuration sectors and the OTP byte by byte: stores, computed CRC fields, overwritten authorization,
// the key ring cut to the entries in use.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <cstring>
#include <memory>

#include "ConfigurationStore.h"
#include "Crc32.h"
#include "DeviceTest.h"
#include "ErrorOf.h"
#include "PermissionList.h"
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

TEST_F(ConfigurationTest, BytesThatTheImageLeavesOutAreZero) {
  Play(kNoErase + "start 4E040000:0102 4E0208FE:0809 . end");
  Bytes scfg(kScfgSize), otp(2048);  // the OTP command has one size
  scfg[0] = 1;
  scfg[1] = 2;
  otp[kOtpSize - 2] = 8;
  otp[kOtpSize - 1] = 9;
  EXPECT_EQ(Payload(26), scfg);
  EXPECT_EQ(Payload(25), otp);
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

TEST_F(ConfigurationTest, ASectorTooSmallForAuthorizationFailsAtTheEnd) {
  host.ccfgSize = 0x2C;
  Play(
      "CcfgSize=2C; ccfg.bootCfg.crc32Info=0:4; ccfg.crc32Info=0:4; ccfg.debugCfg.crc32Info=0:4; "
      "ccfg.userRecord.crc32Info=8:4; ScfgSize=0");
  EXPECT_NE(Play("start 4E020000+2C . end").find("12/1 17/3 | ! "), std::string::npos);
  Play("CcfgOverwriteAuthorizationFieldsToggle=1");
  EXPECT_EQ(Play("start 4E020000+2C . end").find("! "), 0U);
}

TEST_F(ConfigurationTest, PiecesOfTheCcfgLandAtTheirOffsetsAndTheRestIsZero) {
  Play(kGiven + "start 4E0207D0:5A020304 4E020008:05060708 4E02000A:09 . end");
  Bytes expected(kCcfgSize);
  std::memcpy(&expected[0x7D0], "\x5A\x02\x03\x04", 4);
  std::memcpy(&expected[8], "\x05\x06\x09\x08", 4);
  EXPECT_EQ(Payload(12), expected);
}

TEST_F(ConfigurationTest, AShortUserRecordIsPaddedWithZeros) {
  Play("start 4E020700+5");
  Bytes expected = Pattern(5);
  expected.resize(kUserRecordSize);
  EXPECT_EQ(Payload(13), expected);
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

TEST_F(ConfigurationTest, AVerificationComparesWithTheOverwrittenFields) {
  Play(kOverwrite + kType + "Debug not allowed; ImageVerificationSetting=1; start m c . end");
  Bytes overwritten = OpenCcfg();
  overwritten[kAuthorizationType] = 0;
  EXPECT_EQ(Command(17).words.at(4), Crc(overwritten, 0x7D0, 0x2C));
}

TEST_F(ConfigurationTest, ARefusedPieceIsNotStored) {
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

constexpr std::size_t kRingStart = 232;
constexpr std::size_t kEntrySize = 44;
constexpr std::size_t kEntries = 18;

// An SCFG whose key ring holds a key where `ring` has a letter; further entries are unused.
Bytes ScfgWith(const std::string& ring) {
  Bytes scfg = Pattern(kScfgSize);
  for (std::size_t entry = 0; entry < kEntries; ++entry)
    if (entry >= ring.size() || ring[entry] == '.')
      std::fill_n(scfg.begin() + static_cast<std::ptrdiff_t>(kRingStart + entry * kEntrySize), kEntrySize,
                  std::uint8_t{0xFF});
  return scfg;
}

struct ScfgTest : DeviceTest {
  // The end of a load with this SCFG.
  std::string Load(const Bytes& scfg, const std::string& settings = "") {
    Play(settings + "; start c");
    EXPECT_EQ(Device().Write(kScfg, scfg), "ok");
    return Play(". end");
  }
};

TEST_F(ScfgTest, UnusedKeysAreCutOff) {
  const std::string all(kEntries, 'k');
  const struct {
    std::string ring;
    std::size_t bytes;
  } rows[] = {{"", 276},       {"k", 276},    {"kk", 320},          {"kkk", 364},  // one entry stays
              {"kk.kkk", 320}, {".kkk", 276}, {all.substr(1), 980}, {all, 1024}};
  for (const auto& row : rows) {
    const Bytes scfg = ScfgWith(row.ring);
    Load(scfg);
    EXPECT_EQ(Command(26).Specific(), row.bytes) << row.ring;
    Bytes sent = Payload(26);
    EXPECT_EQ(sent.size(), kScfgSize);
    sent.resize(row.bytes);
    EXPECT_EQ(sent, Bytes(scfg.begin(), scfg.begin() + static_cast<std::ptrdiff_t>(row.bytes))) << row.ring;
    EXPECT_EQ(Command(27).words.at(1), Crc(scfg, 0, 0xE4));
  }
}

TEST(ScfgKeyRing, AKeyIsAnyEntryThatIsNotAllOnes) {
  for (const std::size_t byte : {0U, 43U}) {
    Bytes scfg = ScfgWith("k");
    scfg[kRingStart + kEntrySize + byte] = 0xFE;
    ReduceScfgKeyRing(scfg);
    EXPECT_EQ(scfg.size(), 320U);
  }
  for (const std::size_t size : {0U, 1U, 231U, 232U, 276U, 1023U}) {  // too short for the ring
    Bytes scfg(size, 0xFF);
    ReduceScfgKeyRing(scfg);
    EXPECT_EQ(scfg.size(), size);
  }
}

TEST_F(ScfgTest, TheCrcFieldIsRenewedOnRequestByThePartsOwnRange) {
  const struct {
    const char* part;
    std::uint32_t offset, length;
  } rows[] = {
      {"Serin", 0, 0xE4}, {"HighPg1", 0, 0xE4}, {"HighPg2", 4, 0xDC}, {"HighNew", 4, 0xDC}, {"Mid", 4, 0xDC}};
  const Bytes scfg = ScfgWith("k");
  for (const auto& row : rows) {
    const std::string told = Load(scfg, std::string("ScfgOverwriteCrcsToggle=1; part=") + row.part);
    const std::uint32_t field = row.offset + row.length;
    const std::uint32_t crc = Crc(scfg, row.offset, row.length);
    EXPECT_EQ(WordAt(Payload(26), field), crc);
    EXPECT_EQ(Command(27).words.at(1), crc);
    EXPECT_EQ(told.find("I Updating CRC32 field scfg.crc32 @ address 0x" + Hex8(kScfg + field) +
                        ", based on data in the range [0x" + Hex8(kScfg + row.offset) + ", 0x" +
                        Hex8(kScfg + field - 1) + "]. Value changes from 0x" + Hex8(WordAt(scfg, field)) +
                        " to 0x" + Hex8(crc)),
              std::string("12/1 17/3 | ").size())
        << told;
  }
}

TEST_F(ScfgTest, TheCheckedRangeMustFitTheReducedCopy) {
  const std::string tooFar =
      " | ! Offset and length defined in flash property \"scfg.crc32Info\" does not fit in SCFG";
  EXPECT_EQ(Load(ScfgWith("kk"), "scfg.crc32Info=0x0:0x115"), "12/1 17/3 26/140 27/1 1 5");
  EXPECT_EQ(Load(ScfgWith("k")), "12/1 17/3 26/114" + tooFar);  // programmed, not verified
  // Renewed, cut off with the rest, and then not there to check.
  const std::string told = Load(ScfgWith("k"), "ScfgOverwriteCrcsToggle=1; scfg.crc32Info=0x0:0x3FC");
  EXPECT_TRUE(told.starts_with("12/1 17/3 | I Updating") && told.ends_with("26/114" + tooFar)) << told;
}

TEST_F(ScfgTest, ASmallScfgIsProgrammedWhole) {
  host.scfgSize = 0x100;
  EXPECT_EQ(Load(Bytes(0x100, 0xFF), "ScfgSize=0x100"), "12/1 17/3 26/100 27/1 1 5");
}

// A description can be read anew while a CCFG is stored.
TEST_F(ConfigurationTest, AuthorizationLiesAtTheEndOfTheChipsSectorOrNowhere) {
  const struct {
    const char *stored, *chip;
    bool fits;
  } rows[] = {{"800", "400", true}, {"400", "404", true}, {"400", "405", false}, {"400", "800", false}};
  for (const auto& row : rows) {
    Bench bench;
    bench.Play(kGiven +
               "ccfg.bootCfg.crc32Info=0:4; ccfg.crc32Info=0:4; ccfg.debugCfg.crc32Info=0:4; "
               "ccfg.userRecord.crc32Info=8:4; CcfgOverwriteAuthorizationFieldsToggle=1; "
               "CcfgOverwriteAuthorizationFieldsTypeChoicelist=Require debug authentication; "
               "CcfgOverwriteAuthorizationFieldsPasswordHash=" +
               std::string(64, '1') + "; CcfgCrcFields=ccfg.crc32; CcfgSize=" + row.stored);
    bench.Play("init start 4E020000:01");
    bench.host.ccfgSize = static_cast<std::uint32_t>(std::stoul(row.chip, nullptr, 16));
    bench.Play(std::string("CcfgSize=") + row.chip + "; init .");
    EXPECT_EQ(bench.Play("end").find('!') == std::string::npos, row.fits) << row.stored << " " << row.chip;
    if (!row.fits) continue;
    EXPECT_EQ(bench.Payload(12).at(bench.host.ccfgSize - 48), 0xA5);
    EXPECT_EQ(bench.Payload(12).at(bench.host.ccfgSize - 5), 0x11) << "the end of the hash";
  }
}

}  // namespace
