// Which MAIN sectors a load leaves alone: the list of sectors, the fill value, and how blocks are cut by
// both.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <optional>
#include <span>

#include "DataSection.h"
#include "DeviceTest.h"
#include "ErrorOf.h"
#include "FlashDeviceTovik.h"
#include "SectorList.h"

namespace {

// A variant of the chip may keep a list of sectors in a setting of its own.
struct Variant : FlashDeviceTovik {
  explicit Variant(FakeHost& host) : FlashDeviceTovik("", "", "", host.Utility()) {}
  using FlashDeviceTovik::InterpretRangeField;
  using FlashDeviceTovik::ReadDeviceInfo;
};

TEST_F(DeviceTest, AVariantReadsAListOfItsOwnAsRanges) {
  host.properties["DeviceInfoFlashSizeTranslation"] = "*:*:*:0x4000";
  host.properties["PagesOfAVariant"] = "0 , 2-4";
  Variant variant(host);
  variant.Initialize();
  variant.ReadDeviceInfo();
  using Ranges = std::vector<std::string>;
  EXPECT_EQ(variant.InterpretRangeField("PagesOfAVariant", true), (Ranges{"1", "5-7"}));
  EXPECT_EQ(variant.InterpretRangeField("PagesOfAVariant", false), (Ranges{"0", "2-4"}));
}

TEST_F(DeviceTest, AMessageIsCutAt511Characters) {
  std::string pages = "0";
  for (int sector = 2; sector < 256; sector += 2) pages += "," + std::to_string(sector);
  Play("FlashVerboseMode=1; FlashPageToggle=1; FlashPages=" + pages + "; start m");
  const std::vector<std::string> told = host.Plot({"Info Skipping"});
  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(told[0].size(), std::string("Info ").size() + 511);
}

// What holds of every block that is cut by sector options.
// Cuts out of a block at `address` the sectors that `allowed` lacks (where it has entries) and those that
// hold nothing but `fill`. Gives the sentence that is broken, or an empty text.
std::string BrokenCuttingRule(std::span<const std::uint8_t> block, std::uint32_t address,
                              std::uint32_t sectorSize, const SectorMask& allowed,
                              std::optional<std::uint8_t> fill) {
  std::vector<DataSection> sections{{block.data(), address, static_cast<std::uint32_t>(block.size())}};
  if (!allowed.empty())
    ExcludeSpecificSectorsFromDataSections(&sections, ConvertToAllowedSectorRanges(allowed, true),
                                           sectorSize);
  if (fill) ExcludeSectorsFilledWithValueFromDataSections(&sections, *fill, sectorSize);

  std::vector<bool> kept(block.size());
  std::uint32_t end = 0;
  for (const DataSection& section : sections) {
    if (section.length == 0 || section.address < address || (end != 0 && section.address <= end))
      return "sections ascend, lie apart and are not empty";
    const std::uint32_t offset = section.address - address;
    end = section.address + section.length;
    if (offset + section.length > block.size() || section.data != block.data() + offset)
      return "a section is a view of its own part of the block";
    std::fill_n(kept.begin() + offset, section.length, true);
  }
  const auto isAllowed = [&](std::size_t at) {
    return allowed.empty() || (at / sectorSize < allowed.size() && allowed[at / sectorSize]);
  };
  for (std::size_t i = 0; i < block.size(); ++i) {
    const std::size_t at = address + i;
    const std::size_t sector = at / sectorSize * sectorSize;
    const bool isWhole = sector >= address && sector + sectorSize <= address + block.size();
    const bool isFilled = fill && isWhole &&
                          std::ranges::all_of(block.subspan(sector - address, sectorSize),
                                              [&](std::uint8_t byte) { return byte == *fill; });
    // A range that begins at the block's last byte and runs past it.
    const bool isLost =
        !allowed.empty() && i != 0 && i + 1 == block.size() && at == sector && !isAllowed(at - 1);
    if (kept[i] != (isAllowed(at) && !isFilled && !isLost))
      return "exactly the bytes that are meant are left";
  }
  return {};
}

// Every sector with its bytes once, whatever is cut, and never a byte behind the block's.
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
