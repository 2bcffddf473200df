#include "host/load/LoadReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "host/load/FlashMap.h"
#include "host/load/LoadSession.h"
#include "host/report/ProgressBar.h"

namespace host {
namespace {

using testing::ElementsAre;
using Bytes = std::vector<std::uint8_t>;

MemoryMap SmallMap() {
  MemoryMap map;
  map.main = {0, 0x2000};
  map.sectorSize = 0x800;
  map.ccfg = {0x4C000000, 0x10};
  map.ram = {0x20000000, 0x100};
  return map;
}

ImageBlock Block(Region region, std::uint32_t address, Bytes data) {
  const auto size = static_cast<std::uint32_t>(data.size());
  return {region, address, std::move(data), {{address, size}}};
}

TEST(DescribeRegionsTest, GathersTheBlocksOfEachRegion) {
  LoadPlan plan;
  plan.blocks = {Block(Region::Main, 0x7FF, Bytes(2, 0xFF)), Block(Region::Main, 0x1000, Bytes(0x800, 0)),
                 Block(Region::Ram, 0x20000000, {'1', '2', '3', '4', '5', '6', '7', '8', '9'})};
  const std::vector<RegionReport> regions = DescribeRegions(plan, SmallMap());
  ASSERT_EQ(regions.size(), 2U);
  EXPECT_EQ(regions[0].address, 0x7FFU);
  EXPECT_EQ(regions[0].end, 0x1800U);
  EXPECT_EQ(regions[0].bytes, 0x802U);
  EXPECT_EQ(regions[0].sectors, 3U);  // two for the bytes around a border, one for the second block
  EXPECT_EQ(regions[1].sectors, 0U);
  EXPECT_EQ(regions[1].crc, 0xCBF43926U);
}

TEST(JudgeByContentsTest, TellsWhatBecameOfARegion) {
  const MemoryMap map = SmallMap();
  const ChipPicture before{Bytes(0x2000, 0xFF), Bytes(0x10, 0xFF), {}, {}, Bytes(0x100, 0), {}, {}};
  const Bytes wanted(0x10, 0x55);
  Bytes adapted = wanted;
  adapted[3] = adapted[9] = 0;
  const struct {
    const Bytes& held;
    RegionOutcome reported;
    std::uint32_t writes;
    RegionOutcome outcome;
    std::size_t adaptedBytes = 0;
  } cases[] = {
      {wanted, RegionOutcome::Delivered, 1, RegionOutcome::Programmed},
      {adapted, RegionOutcome::Delivered, 1, RegionOutcome::Adapted, 2},
      {wanted, RegionOutcome::Delivered, 0, RegionOutcome::NotWritten},
      {adapted, RegionOutcome::Failed, 1, RegionOutcome::Failed},
      {wanted, RegionOutcome::Failed, 0, RegionOutcome::Failed},
      {before.ccfg, RegionOutcome::NotReached, 0, RegionOutcome::NotReached},
  };
  for (const auto& c : cases) {
    LoadPlan plan;
    plan.blocks = {Block(Region::Ccfg, map.ccfg.base, wanted)};
    LoadReport report;
    report.regions = DescribeRegions(plan, map);
    report.regions[0].outcome = c.reported;
    ChipPicture after = before;
    after.ccfg = c.held;
    after.writes.ccfg = c.writes;
    JudgeByContents(report, plan, map, before, after);
    EXPECT_EQ(report.regions[0].outcome, c.outcome);
    EXPECT_EQ(report.regions[0].adaptedBytes, c.adaptedBytes);
  }
}

TEST(JudgeVerificationTest, FollowsThePluginsOutcomeLine) {
  const std::map<RegionOutcome, char> letters{
      {RegionOutcome::Verified, 'v'}, {RegionOutcome::NotCompared, '-'}, {RegionOutcome::Failed, 'F'}};
  constexpr auto kMain = Region::Main, kCcfg = Region::Ccfg, kScfg = Region::Scfg, kOtp = Region::Otp;
  const struct {
    std::vector<Region> held;  // by the images
    const char* line;          // of the plug-in; an error text when it begins with "Error"
    const char* outcomes;      // of the regions: verified, not compared (-), Failed
    const char* error;
    const char* note;
  } cases[] = {
      {{kMain, kCcfg, kScfg, kOtp}, "Image Verification Succeeded!", "vvv-", "ok", ""},
      {{kMain}, "CCFG Verification Failed!", "v", "ok", "the images hold no ccfg; it was not compared"},
      {{kMain, kCcfg},
       "SCFG Verification Failed!",
       "vv",
       "ok",
       "the images hold no scfg; it was not compared"},
      {{kMain, kCcfg}, "CCFG Verification Failed!", "vF", "ccfg differs from the image", ""},
      {{kCcfg},
       "Main flash Verification Failed!",
       "-",
       "ccfg was not compared: the images hold no main, where the plug-in stops",
       ""},
      {{kMain, kScfg},
       "CCFG Verification Failed!",
       "v-",
       "scfg was not compared: the images hold no ccfg, where the plug-in stops",
       ""},
      {{kMain}, "Error when verifying CCFG - any", "v", "ok", "the images hold no ccfg; it was not compared"},
      {{kMain, kCcfg}, "Error when verifying flash - any", "F-", "Error when verifying flash - any", ""},
      {{kMain, kCcfg, kScfg},
       "Error when verifying SCFG - any",
       "vvF",
       "Error when verifying SCFG - any",
       ""},
      {{kMain}, "Error: probe unplugged", "-", "Error: probe unplugged", ""},
      {{kMain}, "something else", "-", "the plug-in ended the verification without an outcome", ""},
  };
  for (const auto& c : cases) {
    LoadReport report;
    for (const Region region : c.held) report.regions.push_back({.region = region});
    if (std::string_view(c.line).starts_with("Error")) {
      report.error = c.line;
    } else {
      report.messages = {{false, c.line}};
    }
    JudgeVerification(report);
    std::string outcomes;
    for (const RegionReport& region : report.regions) outcomes += letters.at(region.outcome);
    EXPECT_EQ(outcomes, c.outcomes) << c.line;
    EXPECT_EQ(report.error.value_or("ok"), c.error) << c.line;
    EXPECT_EQ(report.note, c.note) << c.line;
  }
}

TEST(FlashMapTest, TellsProgrammedErasedRetainedAndSkippedApart) {
  const MemoryMap map = SmallMap();
  ChipPicture before{Bytes(0x2000, 0x00), {}, {}, {}, {}, std::vector<SectorWear>(4), {}};
  ChipPicture after = before;
  after.mainWear[0] = {1, 1};  // erased and programmed
  after.mainWear[1] = {1, 0};  // erased only
  std::fill_n(after.main.begin() + 0x800, 0x800, std::uint8_t{0xFF});
  LoadPlan plan;
  plan.blocks = {Block(Region::Main, 0, Bytes(16, 0)), Block(Region::Main, 0x1FFF, Bytes(1, 0))};
  using enum SectorState;
  EXPECT_THAT(ClassifySectors(plan, map, before, after), ElementsAre(Programmed, Erased, Retained, Skipped));

  std::fill(after.main.begin() + 0x1000, after.main.end(), std::uint8_t{0xFF});
  EXPECT_EQ(ClassifySectors(plan, map, before, after)[2], Retained) << "blank, but left out of the erase";
  after.mainWear[0] = {0, 1};
  after.mainWear[1] = {0, 0};
  EXPECT_EQ(ClassifySectors(plan, map, before, after)[2], Erased) << "blank, and nothing was erased";
}

TEST(FlashMapTest, DrawsLinesOf64SectorsAndFoldsWhatRepeats) {
  std::vector<SectorState> sectors(64 * 5, SectorState::Erased);
  sectors[0] = SectorState::Programmed;
  sectors.back() = SectorState::Retained;
  const std::string dots(63, '.');
  EXPECT_EQ(DrawFlashMap(sectors, 0x800),
            "Flash map, one character a sector of 2048 bytes\n"
            "  0x00000000 #" +
                dots + "\n" + "  0x00020000 ." + dots + "\n" +
                "  ...\n"
                "  0x00080000 " +
                dots + "r\n" + "  # programmed   . erased   r retained   s skipped\n");
}

TEST(ProgressBarTest, ShowsShareRateAndTimeLeft) {
  const struct {
    std::uint64_t bytes, expected, elapsedNs;
    std::string line;
  } cases[] = {
      {0, 2000, 0, "[" + std::string(32, ' ') + "]   0%  0.0 of 2.0 kB  0 kB/s"},
      {50000, 100000, 500'000'000,
       "[" + std::string(16, '#') + std::string(16, ' ') + "]  50%  50.0 of 100.0 kB  100 kB/s  0.5 s left"},
      {120000, 100000, 1'000'000'000,
       "[" + std::string(32, '#') + "] 100%  120.0 of 100.0 kB  120 kB/s  0.0 s left"},
  };
  for (const auto& c : cases) EXPECT_EQ(ProgressBar::Line(c.bytes, c.expected, c.elapsedNs), c.line);
}

}  // namespace
}  // namespace host
