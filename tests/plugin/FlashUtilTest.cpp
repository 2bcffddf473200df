#include "FlashUtil.h"

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>

#include "ErrorOf.h"
#include "FakeHost.h"

namespace {

using Texts = std::vector<std::string>;

const std::string kRevisions = "DeviceInfoRevisionTranslation";

struct FlashUtilTest : testing::Test {
  FakeHost host;
  IFlashProgrammerUtility2 utility = host.Utility();
  FlashUtil util{&utility};
};

TEST(FlashUtilPieces, AreWhatStandsBetweenDelimiters) {
  const struct {
    const char* text;
    Texts pieces;
  } rows[] = {{"", {}},           {"a", {"a"}},           {"a:", {"a"}},
              {":", {""}},        {":a", {"", "a"}},      {"a::b", {"a", "", "b"}},
              {"a::", {"a", ""}}, {"a,b:c", {"a,b", "c"}}};
  for (const auto& row : rows) {
    Texts pieces = {"before"};
    Texts expected = {"before"};
    expected.insert(expected.end(), row.pieces.begin(), row.pieces.end());
    EXPECT_EQ(&FlashUtil::Split(row.text, ':', pieces), &pieces);
    EXPECT_EQ(pieces, expected) << row.text;
  }
}

TEST_F(FlashUtilTest, RevisionRows) {
  using Rows = std::vector<FlashUtil::RevisionRow>;
  const std::string wrongCount =
      "Property \"DeviceInfoRevisionTranslation\" in Flash Properties XML does not contain the expected "
      "number of entries (N * 3 entries expected)";
  const struct {
    const char* value;
    Rows rows;
    std::string outcome;
  } cases[] = {
      {"0x5:E:1.0:6:F:2.0", {{5, "E", "1.0"}, {6, "F", "2.0"}}, "ok"},
      {"", {}, "ok"},
      {"0X1F:a:b", {{0, "a", "b"}}, "ok"},  // only a small x makes it hexadecimal
      {"0x:a:b", {{0, "a", "b"}}, "ok"},
      {"010:a:b", {{10, "a", "b"}}, "ok"},
      {"12z::b", {{12, "", "b"}}, "ok"},
      {"0xFFFFFFFF:a:b", {{-1, "a", "b"}}, "ok"},
      {"1:a:b:", {{1, "a", "b"}}, "ok"},  // a colon at the end adds nothing
      {"1:a:b:2", {}, wrongCount},
      {"1:a:", {}, wrongCount},
  };
  for (const auto& c : cases) {
    host.properties[kRevisions] = c.value;
    Rows rows;
    EXPECT_EQ(ErrorOf([&] { util.ReadRevisionsTranslationFromXml(rows); }), c.outcome) << c.value;
    EXPECT_EQ(rows, c.rows) << c.value;
  }
}

TEST_F(FlashUtilTest, SizeRows) {
  using Rows = std::vector<FlashUtil::SizeRow>;
  // Names the other property on purpose. The text is interface: scripts read it.
  const std::string wrongCount =
      "Property \"DeviceInfoRevisionTranslation\" in Flash Properties XML does not contain the expected "
      "number of entries (N * 4 entries expected)";
  const struct {
    const char* value;
    Rows rows;
    std::string outcome;
  } cases[] = {
      {"*:0x100:2:3", {{-1, 256, 2, 3}}, "ok"},
      {"", {}, "ok"},
      {"*9:-2:0x:0X1:1:2:3:0x100000000", {{-1, -2, 0, 0}, {1, 2, 3, 0x100000000}}, "ok"},
      {"1:2:3:4:5", {}, wrongCount},
      {"1:2:3", {}, wrongCount},
  };
  for (const auto& c : cases) {
    host.properties["Sizes"] = c.value;
    Rows rows = {{7, 7, 7, 7}};
    Rows expected = rows;
    expected.insert(expected.end(), c.rows.begin(), c.rows.end());
    EXPECT_EQ(ErrorOf([&] { util.ReadSizeTranslationFromXml("Sizes", rows); }), c.outcome) << c.value;
    EXPECT_EQ(rows, expected) << c.value;
  }
}

TEST_F(FlashUtilTest, ASizeRowsBeforeAnEmptyEntryStay) {
  host.properties["Sizes"] = "1:2:3:4:5::7:8";
  std::vector<FlashUtil::SizeRow> rows;
  EXPECT_THROW(util.ReadSizeTranslationFromXml("Sizes", rows), std::out_of_range);
  EXPECT_EQ(rows, (std::vector<FlashUtil::SizeRow>{{1, 2, 3, 4}}));
}

TEST_F(FlashUtilTest, AddressAndLengthAreHexadecimal) {
  const struct {
    const char* value;
    std::uint32_t address, length;
  } rows[] = {{"0x50000000:0x800", 0x50000000, 0x800},
              {"50000000:800", 0x50000000, 0x800},
              {"1FFFFFFFF:-1", 0xFFFFFFFF, 0xFFFFFFFF},
              {"12g:zz", 0x12, 0}};
  for (const auto& row : rows) {
    host.properties["Pair"] = row.value;
    std::uint32_t address = 1, length = 1;
    util.ReadAddressLengthPropertyFromXml("Pair", address, length);
    EXPECT_EQ(std::make_tuple(address, length), std::make_tuple(row.address, row.length)) << row.value;
  }
  EXPECT_TRUE(host.Plot({"Error"}).empty());
}

TEST_F(FlashUtilTest, AnotherNumberOfEntriesIsReportedAndReadAsFarAsItGoes) {
  const Texts report = {
      "Error Property 'Pair' in Flash Properties XML does not contain 2 values delimited by ':'.\n"};
  std::uint32_t address = 0, length = 0;
  host.properties["Pair"] = "10:20:30";
  util.ReadAddressLengthPropertyFromXml("Pair", address, length);
  EXPECT_EQ(std::make_tuple(address, length), std::make_tuple(0x10U, 0x20U));
  EXPECT_EQ(host.Plot({"Error"}), report);
  for (const char* value : {"0x10", "0x10:", ""}) {
    host.properties["Pair"] = value;
    host.ForgetCalls();
    EXPECT_THROW(util.ReadAddressLengthPropertyFromXml("Pair", address, length), std::out_of_range) << value;
    EXPECT_EQ(host.Plot({"Error"}), report) << value;
  }
}

TEST(FlashUtilHost, ANullHostIsRefused) {
  EXPECT_EQ(ErrorOf([] { (void)FlashUtil(nullptr).GetFlashProgrammerUtility(); }),
            "FlashUtil::GetFlashProgrammerUtility(): Pointer is NULL.");
}

TEST(FlashUtilRevision, HasTwoDecimalParts) {
  const struct {
    const char* text;
    std::uint32_t major, minor;
  } rows[] = {{"3.12", 3, 12},   {"010.08", 10, 8}, {".5", 0, 5},  {"3", 77, 88},
              {"1.2.3", 77, 88}, {"3.", 77, 88},    {"2x.y", 2, 0}};
  for (const auto& row : rows) {
    std::uint32_t major = 77, minor = 88;
    FlashUtil::ConvertRevisionStringToMajorMinor(row.text, major, minor);
    EXPECT_EQ(std::make_tuple(major, minor), std::make_tuple(row.major, row.minor)) << row.text;
  }
  std::uint32_t none = 0;
  EXPECT_EQ(ErrorOf([&] { FlashUtil::ConvertRevisionStringToMajorMinor("", none, none); }),
            "FlashUtil::ConvertRevisionStringToMajorMinor(): Input string is empty");
}

TEST(FlashUtilText, OfBytes) {
  const auto text = FlashUtil::ConvertByteVectorToString;
  EXPECT_EQ(text({0x0A, 0xFF}, '-', 16), "0A-FF");
  EXPECT_EQ(text({7, 10, 255}, '-', 10), "07-10-255");
  EXPECT_EQ(text({1, 2}, '\0', 16), std::string("01") + '\0' + "02");
  EXPECT_EQ(text({}, '-', 8), "");
  EXPECT_EQ(ErrorOf([&] { text({1}, '-', 8); }), "ConvertByteVectorToString() does not support base 8");
}

TEST(FlashUtilText, ToBytes) {
  const struct {
    const char* text;
    Bytes bytes;
    const char* outcome;
  } rows[] = {{"0A FF", {0x0A, 0xFF}, "ok"},
              {"a  1", {0x0A, 0x00, 0x01}, "ok"},
              {"", {}, "ok"},
              {"zz", {0}, "ok"},
              {"0A 123", {0x0A, 0}, "Error: Expecting HEX valueConvertStringToByteVector(): "},
              {"-1", {0}, "Failed to convert HEX string '-1' to byte."}};
  for (const auto& row : rows) {
    Bytes bytes;
    EXPECT_EQ(ErrorOf([&] { FlashUtil::ConvertStringToByteVector(row.text, bytes, ' '); }), row.outcome)
        << row.text;
    EXPECT_EQ(bytes, row.bytes) << row.text;
  }
}

TEST(FlashUtilWords, InBothByteOrders) {
  EXPECT_EQ(FlashUtil::ConvertWordToByteVector(0x11223344, true), (Bytes{0x44, 0x33, 0x22, 0x11}));
  EXPECT_EQ(FlashUtil::ConvertWordToByteVector(0x11223344, false), (Bytes{0x11, 0x22, 0x33, 0x44}));
  const std::uint8_t bytes[] = {0x81, 0x02, 0x03, 0xF4};
  EXPECT_EQ(FlashUtil::ConvertByteArrayToWord(bytes, true), 0xF4030281U);
  EXPECT_EQ(FlashUtil::ConvertByteArrayToWord(bytes, false), 0x810203F4U);
}

RC_GTEST_PROP(FlashUtilWords, TextAndReversalRoundTrip, (const Bytes& bytes)) {
  Bytes back;
  FlashUtil::ConvertStringToByteVector(FlashUtil::ConvertByteVectorToString(bytes, ':', 16), back, ':');
  RC_ASSERT(back == bytes);

  Bytes reversed = bytes, inPlace = bytes;
  FlashUtil::ReverseByteVector(reversed);
  FlashUtil::ReverseByteArray(inPlace.data(), static_cast<std::uint32_t>(inPlace.size()));
  RC_ASSERT(reversed == Bytes(bytes.rbegin(), bytes.rend()));
  RC_ASSERT(inPlace == reversed);
}

TEST(HexString, IsReadInPairsFromTheLeft) {
  const struct {
    const char* text;
    Bytes bytes;
  } rows[] = {{"A1B", {0xA1, 0x0B}},  {"0A1", {0x0A, 0x01}}, {"", {}},      {"zz", {0}}, {"1z", {0x01}},
              {"aBcD", {0xAB, 0xCD}}, {"0x12", {0, 0x12}},   {"-1", {0xFF}}};
  for (const auto& row : rows) EXPECT_EQ(hexStringToBytes(row.text), row.bytes) << row.text;
}

}  // namespace
