#include "host/report/Explanation.h"

#include <gtest/gtest.h>

#include "host/plan/Crc32.h"

namespace host {
namespace {

TEST(ExplanationTest, FindsByCodeAndByTextInEitherDirection) {
  const struct {
    const char* question;
    const char* text;  // of the one explanation that fits
  } cases[] = {
      {"135", "Calculated CRC32 does not match expected CRC32"},
      {"0x87", "Calculated CRC32 does not match expected CRC32"},
      {"0", "Command executed successfully"},
      {"Error when verifying flash - Calculated CRC32 does not match expected CRC32",
       "Calculated CRC32 does not match expected CRC32"},
      {"INVALID PASSWORD", "Invalid password parameter"},
      {"Unknown property \"SectorSize\"", "Unknown property"},
  };
  for (const auto& c : cases) {
    const std::vector<Explanation> found = Explain(c.question);
    ASSERT_EQ(found.size(), 1U) << c.question;
    EXPECT_EQ(found[0].text, c.text) << c.question;
  }
}

TEST(ExplanationTest, FindsNothingForWhatItDoesNotKnow) {
  for (const char* question : {"", "127", "0x", "inv", "the moon is full"})
    EXPECT_TRUE(Explain(question).empty()) << question;
}

TEST(ExplanationTest, NoTwoShareACode) {
  for (const Explanation& explanation : Explanations()) {
    if (explanation.code < 0) continue;
    EXPECT_EQ(Explain(std::to_string(explanation.code)).size(), 1U) << explanation.code;
  }
}

TEST(HostCrc32Test, GivesThePublishedCheckValueWholeAndInPieces) {
  const std::uint8_t digits[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
  const std::span<const std::uint8_t> all(digits);
  EXPECT_EQ(Crc32(all), 0xCBF43926U);
  EXPECT_EQ(Crc32(all.subspan(4), Crc32(all.first(4))), 0xCBF43926U);
  EXPECT_EQ(Crc32({}), 0U);
}

}  // namespace
}  // namespace host
