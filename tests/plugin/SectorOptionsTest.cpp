// Which MAIN sectors a load leaves alone: the list of sectors, the fill value, and how blocks are cut by
// both.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <memory>

#include "CuttingRules.h"
#include "DeviceTest.h"
#include "ErrorOf.h"
#include "ExposedDevice.h"
#include "SectorList.h"

namespace {

constexpr std::uint32_t kSectorCount = 8;

struct SectorOptionsTest : DeviceTest {
  SectorOptionsTest() { host.properties["DeviceInfoFlashSizeTranslation"] = "*:*:*:0x4000"; }

  // "address+length" of every run that was programmed, joined by a blank.
  [[nodiscard]] std::string Programmed() const {
    std::string text;
    for (const SaciCommand& command : host.commands) {
      if (command.Id() != 15) continue;
      std::size_t words = 0;
      for (const Words& chunk : command.streamed) words += chunk.size();
      char run[32];
      std::snprintf(run, sizeof run, "%s%X+%zX", text.empty() ? "" : " ", command.words[2], 4 * words);
      text += run;
    }
    return text;
  }
};

TEST_F(SectorOptionsTest, ListedSectorsAreSkipped) {
  const struct {
    const char* pages;
    const char* programmed;
  } cases[] = {
      {"0 , 2-4", "800+800 2800+1800"},
      {"2-2", "0+1000 1800+2800"},
      {"7", "0+3800"},
      {"", "800+3800"},  // an empty element reads as 0
      {"3,", "800+1000 2000+2000"},
      {"\t1\n,\r6 - 7\v", "0+800 1000+2000"},
      {"0-7", ""},
      {"1-2-7", "0+800 1800+2800"},  // what follows a second hyphen is ignored
      {"5,5,4-6", "0+2000 3800+800"},
      {"1 0", nullptr},
  };
  host.properties["FlashPageToggle"] = "1";
  for (const auto& c : cases) {
    host.properties["FlashPages"] = c.pages;
    const std::string outcome = WriteFirst(0, Pattern(kSectorCount * kSector));
    if (c.programmed == nullptr) {
      EXPECT_EQ(outcome,  // white space goes first, so the digits join
                "Given page is out of range: \"10\"\nNote that the number of available pages is 8\n");
      continue;
    }
    EXPECT_EQ(outcome, "ok") << c.pages;
    EXPECT_EQ(Programmed(), c.programmed) << c.pages;
  }
}

TEST_F(SectorOptionsTest, TheListCountsOnlyWhenSwitchedOn) {
  host.properties["FlashPages"] = "nonsense";
  EXPECT_EQ(WriteFirst(0, Pattern(kSector)), "ok");
  EXPECT_EQ(Programmed(), "0+800");
  EXPECT_EQ(CallCount("GetProperty FlashPages"), 0U);
}

TEST_F(SectorOptionsTest, AVariantReadsAListOfItsOwnAsRanges) {
  ExposedDevice variant(host);
  variant.Initialize();
  variant.ReadDeviceInfo();
  host.properties["PagesOfAVariant"] = "0 , 2-4";
  using Ranges = std::vector<std::string>;
  EXPECT_EQ(variant.InterpretRangeField("PagesOfAVariant", true), (Ranges{"1", "5-7"}));
  EXPECT_EQ(variant.InterpretRangeField("PagesOfAVariant", false), (Ranges{"0", "2-4"}));
}

TEST_F(SectorOptionsTest, SaysWhatIsWrongWithAList) {
  const std::string tooFar = "\"\nNote that the number of available pages is 8\n";
  const struct {
    const char* pages;
    std::string error;
  } cases[] = {
      {"1,a", "Invalid option was given \"a\".\n"},
      {"1;2", "Invalid option was given \"1;2\".\n"},
      {"0x1", "Invalid option was given \"0x1\".\n"},
      {"3-", "Invalid range was given \"3-\".\n"},
      {"-3", "Invalid range was given \"-3\".\n"},
      {"-", "Invalid range was given \"-\".\n"},
      {"4 - 2", "Invalid range was given \"4-2\".\n"},
      {"8", "Given page is out of range: \"8" + tooFar},
      {"0,6-8", "Given page is out of range: \"6-8" + tooFar},
      {"9-8", "Invalid range was given \"9-8\".\n"},
  };
  host.properties["FlashPageToggle"] = "1";
  for (const auto& c : cases) {
    host.properties["FlashPages"] = c.pages;
    EXPECT_EQ(WriteFirst(0, Pattern(4)), c.error) << c.pages;
    EXPECT_EQ(Programmed(), "") << c.pages;
    // The load has not begun, so the next block meets the same error.
    EXPECT_EQ(Write(0, Pattern(4)), c.error) << c.pages;
  }
}

TEST_F(SectorOptionsTest, FillValueIsTwoHexadecimalDigits) {
  const struct {
    const char* text;
    int value;  // of the sectors that are skipped
  } cases[] = {{"0xFF", 0xFF}, {"0Xa5", 0xA5}, {"0x00", 0}, {"", 0}, {"abc", 0}, {"FFx0", 0xFF}};
  host.properties["FlashPagesFilledWith"] = "1";
  for (const auto& c : cases) {
    host.properties["FlashPagesFilledWithValue"] = c.text;
    Bytes block(2 * kSector, static_cast<std::uint8_t>(c.value));
    block[kSector + 5] ^= 1;
    EXPECT_EQ(WriteFirst(0, block), "ok") << c.text;
    EXPECT_EQ(Programmed(), "800+800") << c.text;
  }
}

TEST_F(SectorOptionsTest, SaysWhatIsWrongWithAFillValue) {
  const struct {
    const char* text;
    const char* why;
  } cases[] = {
      {"0xF", ". Value must fit in one byte!\n"},
      {"0x0FF", ". Value must fit in one byte!\n"},
      {"x", ". Value must fit in one byte!\n"},
      {"255", ".\n"},
      {"1", ".\n"},
      {"0", ".\n"},
      {"f1", ".\n"},
      {" 0xFF", ". Contains invalid characters!\n"},
      {"0xFG", ". Contains invalid characters!\n"},
      {"-1", ". Contains invalid characters!\n"},
  };
  host.properties["FlashPagesFilledWith"] = "1";
  for (const auto& c : cases) {
    host.properties["FlashPagesFilledWithValue"] = c.text;
    EXPECT_EQ(WriteFirst(0, Pattern(kSector)),
              "Invalid option was given \"" + std::string(c.text) + "\"" + c.why);
    EXPECT_EQ(Programmed(), "");
  }
}

// One letter a sector of the block: '.' holds the fill value, 'x' does not.
TEST_F(SectorOptionsTest, FilledSectorsSplitABlock) {
  const struct {
    std::uint32_t address;
    const char* sectors;
    std::uint32_t cut;  // bytes missing at the end
    const char* programmed;
  } cases[] = {
      {0, "x..x", 0, "0+800 1800+800"},   {0, ".xx.", 0, "800+1000"}, {0, "....", 0, ""},
      {0x400, "..", 0, "0+800 1000+800"},  // its partial sectors stay, the whole one between them goes
      {0x400, ".", 0x500, "0+800"},       {0x800, ".", 1, "800+800"}, {0x400, "xxx", 0, "0+2000"},
  };
  host.properties["FlashPagesFilledWith"] = "1";
  for (const auto& c : cases) {
    Bytes block;
    for (const char* sector = c.sectors; *sector != 0; ++sector) {
      block.insert(block.end(), kSector, 0xFF);
      if (*sector == 'x') block.back() = 0;
    }
    block.erase(block.end() - c.cut, block.end());
    EXPECT_EQ(WriteFirst(c.address, block), "ok");
    EXPECT_EQ(Programmed(), c.programmed) << Hex8(c.address) << " " << c.sectors << " - " << c.cut;
  }
}

TEST_F(SectorOptionsTest, BothOptionsTogetherLeaveWhatBothAllow) {
  host.properties.insert_or_assign("FlashPageToggle", "1");
  host.properties.insert_or_assign("FlashPages", "0");
  host.properties.insert_or_assign("FlashPagesFilledWith", "1");
  Bytes block = Pattern(4 * kSector);
  std::fill_n(block.begin() + 2 * kSector, kSector, std::uint8_t{0xFF});
  EXPECT_EQ(WriteFirst(0, block), "ok");
  EXPECT_EQ(Programmed(), "800+800 1800+800");
}

// A section "address+length", each relative to the start of a block that begins in sector 2, cut by ranges.
TEST(DataSections, AreCutByTheAllowedRanges) {
  const struct {
    std::uint32_t address, length;
    std::vector<std::string> allowed;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> pieces;
  } cases[] = {
      {0x20, 0x10, {"0-7"}, {{0x20, 0x10}}},
      {0x20, 0x10, {"2", "2"}, {{0x20, 0x10}}},  // the first range that holds it whole ends the search
      {0x18, 0x20, {"2"}, {{0x20, 0x10}}},       // a range inside
      {0x18, 0x20, {"1"}, {{0x18, 0x08}}},       // the head
      {0x1F, 0x10, {"1"}, {{0x1F, 0x01}}},       // the first byte alone
      {0x18, 0x20, {"3-5"}, {{0x30, 0x08}}},     // the tail
      {0x18, 0x30, {"1", "3"}, {{0x18, 8}, {0x30, 0x10}}},
      {0x20, 0x10, {"0-1", "3"}, {}},
      {0x20, 0x11, {"3"}, {}},  // a range that begins at the very last byte does not get it
      {0x20, 0x12, {"3"}, {{0x30, 2}}},
      {0x20, 0x10, {}, {}},
      {0, 0, {"0-7"}, {}},
  };
  for (const auto& c : cases) {
    const Bytes block = Pattern(0x40);
    std::vector<DataSection> sections{{block.data(), c.address, c.length}};
    ExcludeSpecificSectorsFromDataSections(&sections, c.allowed, 0x10);
    std::vector<std::pair<std::uint32_t, std::uint32_t>> pieces;
    for (const DataSection& section : sections) {
      pieces.emplace_back(section.address, section.length);
      EXPECT_EQ(section.data - block.data(), section.address - c.address);
    }
    EXPECT_EQ(pieces, c.pieces) << c.address << "+" << c.length;
  }
}

// A range that ends one byte behind the section counts as lying inside it, but there is no byte to write.
TEST(DataSections, NeverReachPastTheBlock) {
  const auto block = std::make_unique<std::uint8_t[]>(0x1F);
  std::vector<DataSection> sections{{block.get(), 0x10, 0x1F}};
  ExcludeSpecificSectorsFromDataSections(&sections, {"2"}, 0x10);
  ASSERT_EQ(sections.size(), 1U);
  EXPECT_EQ(sections[0].address, 0x20U);
  EXPECT_LE(sections[0].length, 0xFU);
}

RC_GTEST_PROP(DataSections, AllowedRangesKeepExactlyTheAllowedBytes, ()) {
  const auto mask = *rc::gen::container<std::vector<bool>>(10, rc::gen::arbitrary<bool>());
  const auto first = *rc::gen::inRange<std::uint32_t>(0, 159);
  const auto last = *rc::gen::inRange<std::uint32_t>(first, 160);
  RC_ASSERT(BrokenCuttingRule(Pattern(last - first + 1), first, 16, mask, {}) == "");
}

RC_GTEST_PROP(DataSections, FillCutDropsWholeFilledSectorsAndNothingElse, ()) {
  const auto address = *rc::gen::inRange<std::uint32_t>(0, 64);
  const auto block =
      *rc::gen::container<Bytes>(rc::gen::weightedElement<std::uint8_t>({{40, 0xFF}, {1, 0x00}}));
  RC_ASSERT(BrokenCuttingRule(block, address, 8, {}, 0xFF) == "");
}

RC_GTEST_PROP(SectorList, RangesOfAMaskListItsSectors, (std::vector<bool> mask)) {
  RC_PRE(!mask.empty() && !std::all_of(mask.begin(), mask.end(), [](bool bit) { return bit; }));
  std::string list;
  for (const std::string& range : ConvertToAllowedSectorRanges(mask, false))
    list += (list.empty() ? "" : ",") + range;
  RC_ASSERT(ParseSkippedSectors(list, static_cast<std::uint32_t>(mask.size())) == mask);
}

TEST(SectorList, RangesCoverWholeSectors) {
  EXPECT_EQ(GetStartAndEndAddressOfSectorOption("3", 0x800), std::pair(0x1800U, 0x1FFFU));
  EXPECT_EQ(GetStartAndEndAddressOfSectorOption("3-5", 0x800), std::pair(0x1800U, 0x2FFFU));
  EXPECT_EQ(ErrorOf([] { (void)GetStartAndEndAddressOfSectorOption("5-3", 0x800); }),
            "Invalid sector range: 5-3");
}

}  // namespace
