#include "host/report/Explanation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "host/plan/Crc32.h"

namespace host {
namespace {

using testing::HasSubstr;

// The texts in the sources below a folder: literals of one statement, joined, since a message is often put
// together there; rows of a table and items of a list one by one.
std::vector<std::string> TextsIn(const std::string& folder) {
  const static std::regex s_token(
      R"re(//[^\n]*|#include[^\n]*|'(?:[^'\\]|\\.)'|"((?:[^"\\]|\\.)*)"|([;{}])|,)re");
  std::vector<std::string> texts;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(TOVIK_SOURCE_DIR "/" + folder)) {
    const std::string extension = entry.path().extension();
    if ((extension != ".cpp" && extension != ".h") || entry.path().stem() == "ExplanationTexts") continue;
    std::ifstream file(entry.path());
    const std::string source{std::istreambuf_iterator<char>(file), {}};
    std::string text;
    bool afterLiteral = false;
    const auto end = [&] {
      if (!text.empty()) texts.push_back(text);
      text.clear();
    };
    for (std::sregex_iterator at(source.begin(), source.end(), s_token), last; at != last; ++at) {
      const bool isLiteral = (*at)[1].matched;
      if ((*at)[2].matched || (afterLiteral && at->str() == ",")) end();
      if (isLiteral) text += std::regex_replace(at->str(1), std::regex(R"(\\(.))"), "$1");
      afterLiteral = isLiteral;
    }
  }
  return texts;
}

TEST(ExplanationTest, FindsByCodeAndByTextInEitherDirection) {
  const struct {
    const char* question;
    const char* place;
    const char* meaning;  // part of that of the one explanation that fits
  } cases[] = {
      {"0", "", "did what it was asked"},
      {"0x80", "", "does not know the command"},
      {"INVALID PASSWORD P", "", "password is wrong"},
      {"Unknown property \"SectorSize\"", "", "lacks a setting"},
      {"132", "otp", "OTP holds other data already"},
      {"132", "ccfg", "could not erase or program"},
      {"Error when programming OTP - Flash hardware FSM error", "", "OTP holds other data already"},
      {"Error occurred when programming flash - Flash hardware FSM error", "", "could not erase or program"},
      {"Debug authentication failed. Error: Invalid size parameter", "", "none is set"},
      {"Error when verifying flash - Calculated CRC32 does not match expected CRC32", "",
       "MAIN flash does not"},
      {"Error when verifying CCFG - Calculated CRC32 does not match expected CRC32", "user record",
       "user record"},
      {"Debugging is not allowed, or has not been authorized. Data will not be written to RAM.", "",
       "memory cannot be reached"},
      {"HSM FW has been updated but HSM failed to boot", "", "does not start"},
  };
  for (const auto& c : cases) {
    const std::vector<Explanation> found = Explain(c.question, c.place);
    ASSERT_EQ(found.size(), 1U) << c.question;
    EXPECT_THAT(std::string(found[0].meaning), HasSubstr(c.meaning)) << c.question;
  }
  // What holds anywhere comes before what holds in one place.
  ASSERT_GT(Explain("132").size(), 1U);
  EXPECT_EQ(Explain("132")[0].place, "");
  // A text that only names a place has what is known of it.
  ASSERT_FALSE(Explain("Error when programming OTP").empty());
  EXPECT_EQ(Explain("Error when programming OTP")[0].place, "otp");
}

TEST(ExplanationTest, FindsNothingForWhatItDoesNotKnow) {
  for (const char* question : {"", "127", "0x", "inv", "the moon is full"})
    EXPECT_TRUE(Explain(question).empty()) << question;
}

TEST(ExplanationTest, KnowsEveryTextOfThePluginThatTellsOfAFailure) {
  // The beginnings of what tells of none: progress, settings and their values, names, notes to the compiler.
  const static std::regex s_innocent(
      "Flash loader:|Flashloader:|Serin_Corvel_FLASH_LIBRARY_VERSION|Performing Chip Erase|Chip Erase: |"
      "Chip Erase \\(retain|Do not erase sectors|Retain |Blank Check: Device flash is blank|"
      "Skipping programming the|Updating CRC32 field|Image Verification Succeeded!|"
      "Debug authentication is required|Debug authentication was|Running the application|"
      "Debug always allowed|Debug not allowed|Require debug authentication|Programming of |FW Version:|"
      "HSM Information:|Update status:|Regular boot|Requested update was successful|"
      "Erase, ChipEraseRetain|CcfgPermissions|main flash sector size|CCFG size|SCFG size|"
      "CCFG user record size|the byte fields are laid|must travel in a register");
  for (const char* folder : {"source", "include"})
    for (const std::string& text : TextsIn(folder)) {
      const bool isMessage =
          std::isalnum(static_cast<unsigned char>(text.front())) != 0 && text.find(' ') != std::string::npos;
      const bool isInnocent = std::regex_search(text, s_innocent, std::regex_constants::match_continuous);
      EXPECT_TRUE(!isMessage || isInnocent || !Explain(text).empty()) << text;
    }
}

TEST(ExplanationTest, ExplainsOnlyWhatIsSaidAndAllOfItOnThePage) {
  const static std::set<std::string_view> s_ofTheLibrary = {"stoul", "vector::_M_range_check"};
  std::string all;
  for (const char* folder : {"source", "include", "host", "simulator"})
    for (const std::string& text : TextsIn(folder)) all += text + "\n";
  std::ifstream file(TOVIK_SOURCE_DIR "/docs/failures.md");
  const std::string page{std::istreambuf_iterator<char>(file), {}};
  for (const Explanation& one : Explanations()) {
    const bool isSaid = all.find(one.text) != std::string::npos;
    EXPECT_TRUE(isSaid || s_ofTheLibrary.contains(one.text)) << one.text;
    std::ostringstream row;
    row << "| " << (one.code ? std::to_string(*one.code) : "") << " | " << one.text << " | " << one.place
        << " | " << one.meaning << " | " << one.remedy << " |\n";
    EXPECT_NE(page.find(row.str()), std::string::npos) << row.str();
  }
  EXPECT_EQ(std::ranges::count(page, '\n'), 8 + static_cast<int>(Explanations().size()));
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
