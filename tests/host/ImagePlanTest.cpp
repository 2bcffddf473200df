#include "host/plan/ImagePlan.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <rapidcheck.h>
#include <rapidcheck/gtest.h>

#include <map>
#include <set>

#include "InputErrorOf.h"
#include "tests/support/ImageRules.h"

namespace {

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

// "main 100+4", in hexadecimal, for each block.
std::string Shape(const LoadPlan& plan) {
  std::string shape;
  for (const ImageBlock& block : plan.blocks)
    shape += fmt::format("{}{} {:x}+{:x}", shape.empty() ? "" : ", ", host::RegionName(block.region),
                         block.address, block.data.size());
  return shape;
}

TEST(ImagePlan, MakesBlocksOfPieces) {
  const std::string wholeCcfg = "ccfg 40000000+100", userRecord = "user record 40000040+20";
  const struct {
    const char* what;
    std::vector<std::pair<std::uint32_t, std::size_t>> pieces;
    std::string blocks;
  } cases[] = {
      {"what touches is sorted and merged", {{0x110, 2}, {0x10E, 2}}, "main 10e+4"},
      {"a gap inside a sector is filled", {{0x200, 1}, {0x203, 1}}, "main 200+4"},
      {"a gap between touched sectors too", {{0x0F0, 8}, {0x1F8, 8}}, "main f0+110"},
      {"an untouched sector stays so", {{0x0F0, 8}, {0x200, 8}}, "main f0+8, main 200+8"},
      {"gaps in RAM stay",
       {{0x2000'0000, 4}, {0x2000'0004, 4}, {0x2000'0009, 4}},
       "ram 20000000+8, ram 20000009+4"},
      {"over MAIN's end", {{0xFFF0, 0x20}}, "main fff0+10, outside 10000+10"},
      {"around RAM",
       {{0x1FFF'FFFF, 1}, {0x2000'0000, 0x1001}},
       "outside fffffff+1, ram 20000000+1000, outside 20001000+1"},
      {"from CCFG into OTP", {{0x4000'00F0, 0x20}}, wholeCcfg + ", otp 40000100+40"},
      {"through the alias", {{0x1000'0100, 4}, {0x5000'1000, 4}}, "main 100+4, scfg 40001000+80"},
      {"over the alias's edge, far apart", {{0x0FFF'FFFC, 8}}, "main 0+4, outside ffffffc+4"},
      {"the user record alone", {{0x4000'0040, 0x20}}, userRecord},
      {"pieces of the user record", {{0x4000'0040, 4}, {0x4000'005C, 4}}, userRecord},
      {"a byte behind the user record", {{0x4000'0040, 0x21}}, wholeCcfg},
      {"a byte before the user record", {{0x4000'003F, 0x21}}, wholeCcfg},
      {"user record and another piece", {{0x4000'0040, 0x20}, {0x4000'0000, 1}}, wholeCcfg},
  };
  for (const auto& c : cases) {
    std::vector<ImageFile> images;
    for (const auto& [address, size] : c.pieces) images.push_back(Image(address, size));
    EXPECT_EQ(Shape(Plan(images)), c.blocks) << c.what;
  }
  host::MemoryMap unaliased = kMap;
  unaliased.aliasMask = 0;
  const std::vector<ImageFile> images{Image(0x1000'0100, 4)};
  EXPECT_EQ(Shape(host::PlanLoad(images, unaliased, PluginCuts::No)), "outside 10000100+4");
}

TEST(ImagePlan, OverlapsAreRefusedNamingBothImagesAndTheRange) {
  ImageFile twice = Image("a", 0x100, Bytes(16));
  twice.segments.push_back({0x10F, {1}});
  const std::pair<std::vector<ImageFile>, const char*> cases[] = {
      {{Image("b", 0x108, Bytes(16)), Image("a", 0x100, Bytes(16))},
       "a and b overlap in 0x00000108..0x0000010f"},
      {{Image("a", 0x100, Bytes(16)), Image("b", 0x104, Bytes(4))},
       "a and b overlap in 0x00000104..0x00000107"},
      {{Image("a", 0x100, Bytes(16)), Image("b", 0x110, Bytes(4))}, "no error"},
      {{twice}, "a gives the bytes 0x0000010f..0x0000010f twice"},
      {{Image("a", 0x100, {1}), Image("b", 0x1000'0100, {1})}, "a and b overlap in 0x00000100..0x00000100"}};
  for (const auto& [images, error] : cases)
    EXPECT_EQ(InputErrorOf([&, &images = images] { Plan(images); }), error);
}

TEST(ImagePlan, SettingsDecideHowLongABlockMayBe) {
  const std::pair<host::PropertyStore::Values, PluginCuts> cases[] = {
      {{}, PluginCuts::No},
      {{{"FlashPageToggle", "1"}}, PluginCuts::Yes},
      {{{"FlashPageToggle", "0"}}, PluginCuts::No},
      {{{"FlashPagesFilledWith", "1"}}, PluginCuts::Yes},
      {{{"RetainMainSectors", "1"}}, PluginCuts::Yes},
      {{{"RetainMainSectors", "1"}, {"NoFlashErase", "1"}}, PluginCuts::No},
      {{{"FlashEraseSetting", "Retain CCFG and SCFG sectors"}}, PluginCuts::No},
      {{{"FlashEraseSetting", "Retain MAIN sectors and CCFG and SCFG"}}, PluginCuts::Yes}};
  for (const auto& [settings, cuts] : cases)
    EXPECT_EQ(host::PluginCutsUnder(host::PropertyStore(settings)), cuts) << testing::PrintToString(settings);
}

// The plug-in drops a last byte that is alone in its sector when it cuts away the sector before.
TEST(ImagePlan, NoLastByteIsAloneInItsSectorWhereThePluginCuts) {
  EXPECT_EQ(Shape(Plan({Image(0x80, 0x81)}, PluginCuts::Yes)), "main 80+82");
  EXPECT_EQ(Shape(Plan({Image(0x80, 0x81)}, PluginCuts::No)), "main 80+81");
  EXPECT_EQ(Shape(Plan({Image(0x100, 1)}, PluginCuts::Yes)), "main 100+1");
}

// --- what must hold for all images -----------------------------------------------------------------------

// Images whose bytes do not overlap, over and around all regions, and what they give at plain addresses.
std::pair<std::vector<ImageFile>, Memory> Arbitrary() {
  std::vector<ImageFile> images;
  Memory memory;
  const auto count = *rc::gen::inRange<std::size_t>(1, 12);
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint32_t base = *rc::gen::element<std::uint32_t>(
        0, 0xF000, 0x1FFF'FF00, 0x2000'0F00, 0x3FFF'FFF0, 0x4000'0000, 0x4000'0F80, 0x1000'0000);
    const std::uint32_t address = base + *rc::gen::inRange<std::uint32_t>(0, 0x1200);
    Bytes data = *rc::gen::container<Bytes>(*rc::gen::inRange<std::size_t>(1, 700),
                                            rc::gen::arbitrary<std::uint8_t>());
    Memory joined = memory;
    for (std::uint32_t k = 0; k < data.size(); ++k) joined.emplace((address + k) & ~kMap.aliasMask, data[k]);
    if (joined.size() != memory.size() + data.size()) continue;
    memory = std::move(joined);
    images.push_back(Image("image", address, std::move(data)));
  }
  return {images, memory};
}

PluginCuts ArbitraryCuts() {
  return *rc::gen::element(PluginCuts::No, PluginCuts::Yes);
}

RC_GTEST_PROP(ImagePlanProperty, LosesNoByteKeepsToRegionsAndTouchesNoSectorTwiceOrForNothing, ()) {
  const auto [images, memory] = Arbitrary();
  const LoadPlan plan = Plan(images, ArbitraryCuts());
  RC_ASSERT(BrokenPlanRule(plan, memory).empty());
  const std::map<Region, host::AddressRange> ranges{
      {Region::Main, kMap.main}, {Region::Ccfg, kMap.ccfg}, {Region::Scfg, kMap.scfg},
      {Region::Otp, kMap.otp},   {Region::Ram, kMap.ram},   {Region::UserRecord, kMap.userRecord}};
  std::set<std::uint32_t> sectors;
  for (const ImageBlock& block : plan.blocks) {
    const std::uint64_t end = block.address + block.data.size();
    for (const auto& [region, range] : ranges) {
      if (region == block.region) RC_ASSERT(range.Contains(block.address) && end <= range.End());
      if (block.region == Region::Outside) RC_ASSERT(block.address >= range.End() || range.base >= end);
    }
    if (block.region != Region::Main) continue;
    for (std::uint32_t sector = block.address / 0x100; sector <= (end - 1) / 0x100; ++sector) {
      RC_ASSERT(sectors.insert(sector).second);
      const auto byte = memory.lower_bound(sector * 0x100);
      RC_ASSERT(byte != memory.end() && byte->first < (sector + 1) * 0x100);
    }
  }
}

// The plug-in's own rule for a transfer of `sectors` sectors whose command has the number `first`: the
// acknowledgements count on from it, with 8 bits, and are followed across one wrap to 256 but no further.
bool TransferSucceeds(std::size_t first, std::size_t sectors) {
  return first + sectors - 1 <= 256;
}

TEST(ImagePlanBlockSize, EveryBlockOfALoadSucceeds) {
  for (const std::size_t commandsBefore : {1u, 2u})
    for (std::size_t block = 0; block < 5000; ++block)
      ASSERT_TRUE(TransferSucceeds((commandsBefore + 2 * block) % 256,
                                   host::MaxSectorsOfBlock(block, PluginCuts::No)))
          << block;
  // Where the plug-in cuts blocks, any number may come.
  for (std::size_t first = 0; first < 256; ++first)
    EXPECT_TRUE(TransferSucceeds(first, host::MaxSectorsOfBlock(first, PluginCuts::Yes)));
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
