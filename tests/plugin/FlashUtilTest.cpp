// Texts and bytes: what no setting of the device reaches, and every form of what it reads of one.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include "DeviceTest.h"
#include "ErrorOf.h"
#include "FlashUtil.h"

namespace {

using Texts = std::vector<std::string>;

TEST(FlashUtil, PiecesAreWhatStandsBetweenDelimiters) {
  const std::pair<const char*, Texts> rows[] = {{"", {}},
                                                {"a:", {"a"}},
                                                {":", {""}},
                                                {":a", {"", "a"}},
                                                {"a::b", {"a", "", "b"}},
                                                {"a,b:c", {"a,b", "c"}}};
  for (const auto& [text, expected] : rows) {
    Texts pieces;
    EXPECT_EQ(FlashUtil::Split(text, ':', pieces), expected) << text;
  }
}

TEST(FlashUtil, AddressAndLengthAreHexadecimal) {
  FakeHost host;
  IFlashProgrammerUtility2 utility = host.Utility();
  const FlashUtil util(&utility);
  const std::string noPair =
      "Error Property 'Pair' in Flash Properties XML does not contain 2 values delimited by ':'.\n";
  const struct {
    const char* value;
    std::uint32_t address, length;
    bool pair, reads;
  } rows[] = {{"0x50000000:0x800", 0x50000000, 0x800, true, true},
              {"50000000:800", 0x50000000, 0x800, true, true},
              {"1FFFFFFFF:-1", 0xFFFFFFFF, 0xFFFFFFFF, true, true},
              {"12g:zz", 0x12, 0, true, true},
              {"10:20:30", 0x10, 0x20, false, true},
              {"0x10", 0x10, 1, false, false},
              {"", 1, 1, false, false}};
  for (const auto& row : rows) {
    host.ForgetCalls();
    host.properties["Pair"] = row.value;
    std::uint32_t address = 1, length = 1;
    EXPECT_EQ(ErrorOf([&] { util.ReadAddressLengthPropertyFromXml("Pair", address, length); }) == "ok",
              row.reads);
    EXPECT_EQ(address, row.address) << row.value;
    EXPECT_EQ(length, row.length) << row.value;
    EXPECT_EQ(host.Plot({"Error"}), row.pair ? Texts{} : Texts{noPair}) << row.value;
  }
  EXPECT_EQ(ErrorOf([] { (void)FlashUtil(nullptr).GetFlashProgrammerUtility(); }),
            "FlashUtil::GetFlashProgrammerUtility(): Pointer is NULL.");
}

TEST(FlashUtil, TextOfBytesAndBack) {
  const auto text = FlashUtil::ConvertByteVectorToString;
  EXPECT_EQ(text({0x0A, 0xFF}, '-', 16), "0A-FF");
  EXPECT_EQ(text({7, 10, 255}, '-', 10), "07-10-255");
  EXPECT_EQ(text({}, '-', 8), "");
  EXPECT_EQ(ErrorOf([&] { text({1}, '-', 8); }), "ConvertByteVectorToString() does not support base 8");
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
    EXPECT_EQ(ErrorOf([&] { FlashUtil::ConvertStringToByteVector(row.text, bytes, ' '); }), row.outcome);
    EXPECT_EQ(bytes, row.bytes) << row.text;
  }
}

TEST(FlashUtil, HexDigitsAreReadInPairsFromTheLeft) {
  const std::pair<const char*, Bytes> rows[] = {
      {"A1B", {0xA1, 0x0B}},  {"0A1", {0x0A, 0x01}}, {"", {}},      {"zz", {0}}, {"1z", {0x01}},
      {"aBcD", {0xAB, 0xCD}}, {"0x12", {0, 0x12}},   {"-1", {0xFF}}};
  for (const auto& [text, bytes] : rows) EXPECT_EQ(hexStringToBytes(text), bytes) << text;
}

TEST(FlashUtil, WordsInBothByteOrders) {
  EXPECT_EQ(FlashUtil::ConvertWordToByteVector(0x11223344, true), (Bytes{0x44, 0x33, 0x22, 0x11}));
  EXPECT_EQ(FlashUtil::ConvertWordToByteVector(0x11223344, false), (Bytes{0x11, 0x22, 0x33, 0x44}));
  const std::uint8_t bytes[] = {0x81, 0x02, 0x03, 0xF4};
  EXPECT_EQ(FlashUtil::ConvertByteArrayToWord(bytes, true), 0xF4030281U);
  EXPECT_EQ(FlashUtil::ConvertByteArrayToWord(bytes, false), 0x810203F4U);
}

RC_GTEST_PROP(FlashUtil, TextAndReversalRoundTrip, (const Bytes& bytes)) {
  Bytes back, reversed = bytes, inPlace = bytes;
  FlashUtil::ConvertStringToByteVector(FlashUtil::ConvertByteVectorToString(bytes, ':', 16), back, ':');
  RC_ASSERT(back == bytes);
  FlashUtil::ReverseByteVector(reversed);
  FlashUtil::ReverseByteArray(inPlace.data(), static_cast<std::uint32_t>(inPlace.size()));
  RC_ASSERT(reversed == Bytes(bytes.rbegin(), bytes.rend()));
  RC_ASSERT(inPlace == reversed);
}

}  // namespace
