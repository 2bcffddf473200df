#include "host/ImagePlan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "host/InputError.h"

namespace {

using host::AddressRange;
using host::ImageBlock;
using host::ImageFile;
using host::LoadPlan;
using host::PluginCuts;
using host::Region;
using Bytes = std::vector<std::uint8_t>;

// Small regions with every neighbourhood: OTP right behind CCFG, gaps elsewhere.
const host::MemoryMap kMap{.main = {0, 0x10000},
                           .sectorSize = 0x100,
                           .ccfg = {0x4000'0000, 0x100},
                           .userRecord = {0x4000'0040, 0x20},
                           .scfg = {0x4000'1000, 0x80},
                           .otp = {0x4000'0100, 0x40},
                           .ram = {0x2000'0000, 0x1000},
                           .aliasMask = 0x1000'0000};

ImageFile Image(std::string name, std::uint32_t address, Bytes data) {
  return {std::move(name), host::ImageFormat::Raw, {{address, std::move(data)}}};
}
ImageFile Image(std::uint32_t address, std::size_t size) {
  return Image("image", address, Bytes(size, 0x11));
}

LoadPlan Plan(const std::vector<ImageFile>& images, PluginCuts cuts = PluginCuts::No) {
  return host::PlanLoad(images, kMap, cuts);
}

// Region, address and size of each block.
std::vector<std::tuple<Region, std::uint32_t, std::size_t>> Shape(const LoadPlan& plan) {
  std::vector<std::tuple<Region, std::uint32_t, std::size_t>> shape;
  for (const ImageBlock& block : plan.blocks)
    shape.emplace_back(block.region, block.address, block.data.size());
  return shape;
}
using Expected = std::vector<std::tuple<Region, std::uint32_t, std::size_t>>;

std::string ErrorOf(const std::vector<ImageFile>& images) {
  try {
    Plan(images);
  } catch (const host::InputError& error) {
    return error.what();
  }
  return "no error";
}

TEST(ImagePlan, SortsAndMergesWhatTouches) {
  const LoadPlan plan = Plan({Image("b", 0x110, {3, 4}), Image("a", 0x10E, {1, 2})});
  ASSERT_EQ(Shape(plan), (Expected{{Region::Main, 0x10E, 4}}));
  EXPECT_EQ(plan.blocks[0].data, (Bytes{1, 2, 3, 4}));
  EXPECT_EQ(plan.blocks[0].given, (std::vector<AddressRange>{{0x10E, 4}}));
}

TEST(ImagePlan, FillsGapsInsideASector) {
  const LoadPlan plan = Plan({Image("a", 0x200, {1}), Image("b", 0x203, {2})});
  ASSERT_EQ(Shape(plan), (Expected{{Region::Main, 0x200, 4}}));
  EXPECT_EQ(plan.blocks[0].data, (Bytes{1, 0xFF, 0xFF, 2}));
  EXPECT_EQ(plan.blocks[0].given, (std::vector<AddressRange>{{0x200, 1}, {0x203, 1}}));
  EXPECT_EQ(plan.blocks[0].ImageBytes(), 2u);
}

TEST(ImagePlan, KeepsAnUntouchedSectorUntouched) {
  EXPECT_EQ(Shape(Plan({Image(0x0F0, 8), Image(0x200, 8)})),
            (Expected{{Region::Main, 0x0F0, 8}, {Region::Main, 0x200, 8}}));
  EXPECT_EQ(Shape(Plan({Image(0x0F0, 8), Image(0x1F8, 8)})), (Expected{{Region::Main, 0x0F0, 0x110}}));
}

TEST(ImagePlan, CutsAtTheBordersOfRegions) {
  EXPECT_EQ(Shape(Plan({Image(0xFFF0, 0x20)})),
            (Expected{{Region::Main, 0xFFF0, 0x10}, {Region::Outside, 0x1'0000, 0x10}}));
  EXPECT_EQ(Shape(Plan({Image(0x1FFF'FFFF, 1), Image(0x2000'0000, 0x1001)})),
            (Expected{{Region::Outside, 0x0FFF'FFFF, 1},
                      {Region::Ram, 0x2000'0000, 0x1000},
                      {Region::Outside, 0x2000'1000, 1}}));
  EXPECT_EQ(Shape(Plan({Image(0x4000'00F0, 0x20)})),
            (Expected{{Region::Ccfg, 0x4000'0000, 0x100}, {Region::Otp, 0x4000'0100, 0x40}}));
}

TEST(ImagePlan, GivesConfigurationRegionsWhole) {
  const LoadPlan plan = Plan({Image("a", 0x4000'0010, {1}), Image("b", 0x4000'1002, {2})});
  ASSERT_EQ(Shape(plan), (Expected{{Region::Ccfg, 0x4000'0000, 0x100}, {Region::Scfg, 0x4000'1000, 0x80}}));
  Bytes ccfg(0x100, 0xFF);
  ccfg[0x10] = 1;
  EXPECT_EQ(plan.blocks[0].data, ccfg);
  EXPECT_EQ(plan.blocks[1].ImageBytes(), 1u);
}

struct UserRecordCase {
  std::vector<std::pair<std::uint32_t, std::size_t>> pieces;
  Region region;
};
struct UserRecordTest : testing::TestWithParam<UserRecordCase> {};

TEST_P(UserRecordTest, IsABlockOfItsOwnOnlyWhenAlone) {
  std::vector<ImageFile> images;
  for (const auto& [address, size] : GetParam().pieces) images.push_back(Image(address, size));
  const Expected record{{Region::UserRecord, 0x4000'0040, 0x20}};
  const Expected whole{{Region::Ccfg, 0x4000'0000, 0x100}};
  EXPECT_EQ(Shape(Plan(images)), GetParam().region == Region::UserRecord ? record : whole);
}

INSTANTIATE_TEST_SUITE_P(
    Table, UserRecordTest,
    testing::Values(UserRecordCase{{{0x4000'0040, 0x20}}, Region::UserRecord},
                    UserRecordCase{{{0x4000'0048, 4}}, Region::UserRecord},
                    UserRecordCase{{{0x4000'0040, 4}, {0x4000'005C, 4}}, Region::UserRecord},
                    UserRecordCase{{{0x4000'0040, 0x21}}, Region::Ccfg},
                    UserRecordCase{{{0x4000'003F, 0x21}}, Region::Ccfg},
                    UserRecordCase{{{0x4000'0040, 0x20}, {0x4000'0000, 1}}, Region::Ccfg}));

TEST(ImagePlan, LeavesGapsInRamAlone) {
  EXPECT_EQ(Shape(Plan({Image(0x2000'0000, 4), Image(0x2000'0004, 4), Image(0x2000'0009, 4)})),
            (Expected{{Region::Ram, 0x2000'0000, 8}, {Region::Ram, 0x2000'0009, 4}}));
}

TEST(ImagePlan, TakesTheAliasForThePlainAddress) {
  EXPECT_EQ(Shape(Plan({Image(0x1000'0100, 4)})), (Expected{{Region::Main, 0x100, 4}}));
  EXPECT_EQ(Shape(Plan({Image(0x5000'1000, 4)})), (Expected{{Region::Scfg, 0x4000'1000, 0x80}}));
  // Across the alias's edge the two halves go far apart.
  EXPECT_EQ(Shape(Plan({Image(0x0FFF'FFFC, 8)})),
            (Expected{{Region::Main, 0, 4}, {Region::Outside, 0x0FFF'FFFC, 4}}));
  EXPECT_EQ(ErrorOf({Image("plain", 0x100, {1}), Image("alias", 0x1000'0100, {1})}),
            "plain and alias overlap from 0x00000100 to 0x00000100");

  host::MemoryMap map = kMap;
  map.aliasMask = 0;
  const std::vector<ImageFile> images{Image(0x1000'0100, 4)};
  EXPECT_EQ(Shape(host::PlanLoad(images, map, PluginCuts::No)),
            (Expected{{Region::Outside, 0x1000'0100, 4}}));
}

TEST(ImagePlan, OverlapsAreRefusedNamingBothImagesAndTheRange) {
  EXPECT_EQ(ErrorOf({Image("b", 0x108, Bytes(16)), Image("a", 0x100, Bytes(16))}),
            "a and b overlap from 0x00000108 to 0x0000010F");
  EXPECT_EQ(ErrorOf({Image("a", 0x100, Bytes(16)), Image("b", 0x104, Bytes(4))}),
            "a and b overlap from 0x00000104 to 0x00000107");
  EXPECT_EQ(ErrorOf({Image("a", 0x100, Bytes(16)), Image("b", 0x110, Bytes(4))}), "no error");
  ImageFile twice = Image("a", 0x100, Bytes(16));
  twice.segments.push_back({0x10F, {1}});
  EXPECT_EQ(ErrorOf({twice}), "a gives the bytes from 0x0000010F to 0x0000010F twice");
}

TEST(ImagePlan, CountsWhatItHolds) {
  const LoadPlan plan = Plan({Image(0x100, 4), Image(0x4000'0000, 4)});
  EXPECT_TRUE(plan.Has(Region::Main));
  EXPECT_FALSE(plan.Has(Region::Scfg));
  EXPECT_EQ(plan.ImageBytes(Region::Ccfg), 4u);
  EXPECT_EQ(plan.TotalBytes(), 0x104u);
}

struct CutSetting {
  std::string name, value;
  PluginCuts cuts;
};
struct CutSettingTest : testing::TestWithParam<CutSetting> {};
TEST_P(CutSettingTest, DecidesHowLongABlockMayBe) {
  const auto valueOf = [&](std::string_view name) {
    return name == GetParam().name ? GetParam().value : std::string();
  };
  EXPECT_EQ(host::PluginCutsUnder(valueOf), GetParam().cuts);
}
INSTANTIATE_TEST_SUITE_P(
    Table, CutSettingTest,
    testing::Values(CutSetting{"none", "", PluginCuts::No},
                    CutSetting{"FlashPageToggle", "1", PluginCuts::Yes},
                    CutSetting{"FlashPageToggle", "0", PluginCuts::No},
                    CutSetting{"FlashPagesFilledWith", "1", PluginCuts::Yes},
                    CutSetting{"RetainMainSectors", "1", PluginCuts::Yes},
                    CutSetting{"FlashEraseSetting", "Chip Erase", PluginCuts::No},
                    CutSetting{"FlashEraseSetting", "Retain CCFG and SCFG sectors", PluginCuts::No},
                    CutSetting{"FlashEraseSetting", "Retain MAIN sectors and CCFG and SCFG", PluginCuts::Yes},
                    CutSetting{"FlashEraseSetting", "Chip Erase (retain sectors specified in CCFG)",
                               PluginCuts::Yes}));

// --- what must hold for all images -----------------------------------------------------------------------

// Images whose bytes do not overlap, over and around all regions; `bytes` is what they give, at plain
// addresses.
struct ArbitraryImages {
  std::vector<ImageFile> images;
  std::map<std::uint32_t, std::uint8_t> bytes;
};

ArbitraryImages Arbitrary() {
  ArbitraryImages result;
  const auto count = *rc::gen::inRange<std::size_t>(1, 12);
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t base = *rc::gen::element<std::uint32_t>(
        0, 0xF000, 0x1FFF'FF00, 0x2000'0F00, 0x3FFF'FFF0, 0x4000'0000, 0x4000'0F80, 0x1000'0000);
    const std::uint32_t address = base + *rc::gen::inRange<std::uint32_t>(0, 0x1200);
    Bytes data = *rc::gen::container<Bytes>(*rc::gen::inRange<std::size_t>(1, 700),
                                            rc::gen::arbitrary<std::uint8_t>());
    std::map<std::uint32_t, std::uint8_t> plain;
    for (std::uint32_t k = 0; k < data.size(); ++k) plain[(address + k) & ~kMap.aliasMask] = data[k];
    const bool overlaps = std::any_of(plain.begin(), plain.end(),
                                      [&](const auto& byte) { return result.bytes.contains(byte.first); });
    if (overlaps || plain.size() != data.size()) continue;
    result.bytes.insert(plain.begin(), plain.end());
    result.images.push_back(Image("image", address, std::move(data)));
  }
  return result;
}

PluginCuts ArbitraryCuts() {
  return *rc::gen::element(PluginCuts::No, PluginCuts::Yes);
}

RC_GTEST_PROP(ImagePlanProperty, LosesNoByteAndInventsOnlyFill, ()) {
  const ArbitraryImages given = Arbitrary();
  const LoadPlan plan = Plan(given.images, ArbitraryCuts());
  std::set<std::uint32_t> seen;
  std::size_t imageBytes = 0;
  for (const ImageBlock& block : plan.blocks) {
    for (std::uint32_t i = 0; i < block.data.size(); ++i) {
      const std::uint32_t address = block.address + i;
      RC_ASSERT(seen.insert(address).second);
      const auto wanted = given.bytes.find(address);
      RC_ASSERT(block.data[i] == (wanted == given.bytes.end() ? 0xFF : wanted->second));
      const bool isGiven = std::any_of(block.given.begin(), block.given.end(),
                                       [&](AddressRange range) { return range.Contains(address); });
      RC_ASSERT(isGiven == (wanted != given.bytes.end()));
    }
    imageBytes += block.ImageBytes();
  }
  RC_ASSERT(imageBytes == given.bytes.size());
}

RC_GTEST_PROP(ImagePlanProperty, BlocksAscendAndKeepToOneRegion, ()) {
  const LoadPlan plan = Plan(Arbitrary().images, ArbitraryCuts());
  const std::map<Region, AddressRange> ranges{
      {Region::Main, kMap.main}, {Region::Ccfg, kMap.ccfg}, {Region::Scfg, kMap.scfg},
      {Region::Otp, kMap.otp},   {Region::Ram, kMap.ram},   {Region::UserRecord, kMap.userRecord}};
  std::uint64_t end = 0;
  for (const ImageBlock& block : plan.blocks) {
    RC_ASSERT(block.address >= end);
    end = block.address + block.data.size();
    for (const auto& [region, range] : ranges) {
      const bool touches = block.address < range.End() && range.base < end;
      if (region == block.region) RC_ASSERT(range.Contains(block.address) && end <= range.End());
      // The user record is a part of the CCFG; all else keeps apart.
      if (region != block.region && region != Region::UserRecord && block.region != Region::UserRecord)
        RC_ASSERT(!touches);
    }
  }
}

RC_GTEST_PROP(ImagePlanProperty, NoTwoBlocksShareAMainSectorAndNoneIsTouchedForNothing, ()) {
  const ArbitraryImages given = Arbitrary();
  const LoadPlan plan = Plan(given.images, ArbitraryCuts());
  std::set<std::uint32_t> sectors;
  for (const ImageBlock& block : plan.blocks) {
    if (block.region != Region::Main) continue;
    const auto last = static_cast<std::uint32_t>(block.address + block.data.size() - 1);
    for (std::uint32_t sector = block.address / 0x100; sector <= last / 0x100; ++sector) {
      RC_ASSERT(sectors.insert(sector).second);
      const auto byte = given.bytes.lower_bound(sector * 0x100);
      RC_ASSERT(byte != given.bytes.end() && byte->first < (sector + 1) * 0x100);
    }
  }
}

// The plug-in's own rule for a transfer of `sectors` sectors whose command has the number `first`: replayed
// as acknowledgements with 8-bit numbers, followed across one wrap.
bool TransferSucceeds(std::uint32_t first, std::size_t sectors) {
  std::uint32_t last = first - 1;
  for (std::size_t k = 0; k < sectors; ++k) {
    std::uint32_t acknowledged = (first + static_cast<std::uint32_t>(k)) % 256;
    if (acknowledged < last % 256) acknowledged += last - last % 256 + 256;
    if (acknowledged != first + k) return false;
    last = acknowledged;
  }
  return true;
}

TEST(ImagePlanBlockSize, TheReplayedRuleIsTheDocumentedOne) {
  for (std::uint32_t first = 0; first < 256; ++first)
    for (std::size_t sectors = 1; sectors <= 300; ++sectors)
      ASSERT_EQ(TransferSucceeds(first, sectors), first + sectors - 1 <= 256) << first << " " << sectors;
}

TEST(ImagePlanBlockSize, EveryBlockOfALongLoadSucceeds) {
  for (const std::uint32_t commandsBefore : {1u, 2u})
    for (std::size_t block = 0; block < 5000; ++block) {
      const auto first = static_cast<std::uint32_t>((commandsBefore + 2 * block) % 256);
      ASSERT_TRUE(TransferSucceeds(first, host::MaxSectorsOfBlock(block, PluginCuts::No))) << block;
    }
}

TEST(ImagePlanBlockSize, TwoSectorsSucceedWhateverTheNumber) {
  for (std::uint32_t first = 0; first < 256; ++first)
    EXPECT_TRUE(TransferSucceeds(first, host::MaxSectorsOfBlock(first, PluginCuts::Yes)));
}

// Small blocks would cost the plug-in its speed.
TEST(ImagePlanBlockSize, MostBlocksAreLong) {
  std::size_t sectors = 0;
  for (std::size_t block = 0; block < 128; ++block) sectors += host::MaxSectorsOfBlock(block, PluginCuts::No);
  EXPECT_GT(sectors / 128, 28u);
  EXPECT_EQ(host::MaxSectorsOfBlock(0, PluginCuts::No), 32u);
}

RC_GTEST_PROP(ImagePlanProperty, NoMainBlockIsLongerThanItsNumberAllows, ()) {
  const auto cuts = ArbitraryCuts();
  const auto start = *rc::gen::inRange<std::uint32_t>(0, 0x8000);
  const auto size = *rc::gen::inRange<std::size_t>(1, 0x8000);
  const LoadPlan plan = Plan({Image(start, size)}, cuts);
  for (std::size_t k = 0; k < plan.blocks.size(); ++k) {
    const ImageBlock& block = plan.blocks[k];
    const std::size_t first = block.address / 0x100;
    const std::size_t last = (block.address + block.data.size() - 1) / 0x100;
    RC_ASSERT(last - first + 1 <= host::MaxSectorsOfBlock(k, cuts));
    // And none is shorter than it need be.
    if (k + 1 < plan.blocks.size()) RC_ASSERT(last - first + 1 == host::MaxSectorsOfBlock(k, cuts));
  }
}

}  // namespace
