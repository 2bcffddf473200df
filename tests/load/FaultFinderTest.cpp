#include "host/load/FaultFinder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "Workbench.h"

// Where exactly a chip differs from an image, found by verification-only loads.

namespace {

using host::AddressRange;
using host::FaultSearch;
using host::Region;
using host::RegionOutcome;
using State = simulator::ChipState;
using testing::ElementsAre;
using testing::IsEmpty;

class FaultFinderTest : public testing::TestWithParam<std::string> {
 protected:
  FaultFinderTest() {
    image.main = {{0, Noise(40 * kSectorSize, 1)}, {60 * kSectorSize + 9, Noise(100, 2)}};
    segments = image.All();
    EXPECT_EQ(Outcome(bench.Load(segments)), "ok");
  }

  // Compares with these sectors, and bytes of CCFG and SCFG, changed behind everybody's back.
  host::LoadRecord Verify(const std::set<std::uint32_t>& sectors, bool changesConfiguration,
                          FaultSearch search) {
    const State loaded = bench.State();
    bench.Prepare([&](State& state) {
      for (const std::uint32_t sector : sectors) state.main[(sector + 1) * kSectorSize - 1] ^= 1;
      if (changesConfiguration) state.scfg[0] ^= 1;
    });
    const State changed = bench.State();
    host::LoadRecord record = bench.Verify(segments);
    host::FaultFinder finder(bench.Target());
    finder.Explain(bench.Plan(segments), record, search);
    loads = finder.Loads();
    EXPECT_EQ(Difference(bench.State(), changed), "") << "a search changes nothing";
    bench.Prepare([&](State& state) { state = loaded; });
    return record;
  }

  Workbench bench{GetParam()};
  CheckImage image{bench.device.chip, 1200};
  Segments segments;
  std::size_t loads = 0;
};

TEST_P(FaultFinderTest, FindsTheFirstSectorInFewLoads) {
  for (const std::uint32_t sector : {0U, 1U, 17U, 31U, 32U, 39U, 60U}) {
    const host::LoadRecord record = Verify({sector, 60}, sector == 17, FaultSearch::First);
    ASSERT_TRUE(record.failure);
    EXPECT_THAT(record.differences, ElementsAre(AddressRange{sector * kSectorSize, kSectorSize}));
    EXPECT_EQ(record.failure->firstSector, sector);
    EXPECT_EQ(record.failure->text,
              "Error when verifying flash - Calculated CRC32 does not match expected CRC32");
    EXPECT_LE(loads, 6U + (sector == 0 ? 2U : 1U)) << "32 sectors a block, and the comparison of the rest";
    EXPECT_EQ(record.Find(Region::Main)->outcome, RegionOutcome::Differs);
    EXPECT_EQ(record.Find(Region::Ccfg)->outcome, RegionOutcome::Verified);
    EXPECT_EQ(record.Find(Region::Scfg)->outcome,
              sector == 17 ? RegionOutcome::Differs : RegionOutcome::Verified);
  }
}

TEST_P(FaultFinderTest, FindsAllRanges) {
  const host::LoadRecord record = Verify({3, 4, 5, 31, 32, 60}, false, FaultSearch::All);
  EXPECT_THAT(record.differences, ElementsAre(AddressRange{3 * kSectorSize, 3 * kSectorSize},
                                              AddressRange{31 * kSectorSize, 2 * kSectorSize},
                                              AddressRange{60 * kSectorSize, kSectorSize}));
  EXPECT_EQ(host::CountSectors(record.sectors, host::SectorState::Verified), 35U);
}

TEST_P(FaultFinderTest, NamesTheSectorThatALoadCouldNotProgram) {
  bench.Chip().AskedFaults().Add("cell:0x2800");
  host::LoadRecord record = bench.Load(segments);
  host::FaultFinder(bench.Target()).Explain(bench.Plan(segments), record, FaultSearch::First);
  EXPECT_THAT(record.differences, ElementsAre(AddressRange{0x2800, kSectorSize}));
  EXPECT_EQ(record.sectors[4], host::SectorState::Programmed);
  EXPECT_EQ(record.sectors[5], host::SectorState::Failed);
  EXPECT_EQ(record.sectors[6], host::SectorState::Unverified);
  EXPECT_EQ(record.sectors[39], host::SectorState::NotReached);
}

TEST_P(FaultFinderTest, BlamesNobodyForWhatHasPassed) {
  bench.Chip().AskedFaults().Add("saci:16:nth=1:result=0x87");
  host::LoadRecord record = bench.Verify(segments);
  ASSERT_TRUE(record.failure);
  host::FaultFinder(bench.Target()).Explain(bench.Plan(segments), record, FaultSearch::First);
  EXPECT_THAT(record.differences, IsEmpty());
  EXPECT_THAT(record.notes, testing::Contains(testing::HasSubstr("was not found")));
}

TEST_P(FaultFinderTest, TellsAChipThatNeedsNoLoad) {
  bench.Set("CcfgOverwriteCrcsToggle", "1");
  bench.Set("ScfgOverwriteCrcsToggle", "1");
  const auto compare = [&] { return host::IsAlreadyOnChip(bench.Target(), bench.Plan(segments)); };
  EXPECT_THAT(compare().notCompared, testing::Contains("ram"));

  std::fill(image.scfg.begin() + 0xE8, image.scfg.end(), std::uint8_t{0xFF});
  segments = image.main;
  segments.push_back({bench.device.chip.ccfg.base, image.ccfg});
  segments.push_back({bench.device.chip.scfg.base, image.scfg});
  EXPECT_EQ(Outcome(bench.Load(segments)), "ok");
  const State loaded = bench.State();
  EXPECT_TRUE(compare().isEqual) << "CRC words that the load put right do not count";
  for (Bytes State::*const region : {&State::main, &State::ccfg, &State::scfg}) {
    bench.Prepare([&](State& state) { (state.*region)[1] ^= 1; });
    EXPECT_FALSE(compare().isEqual);
    bench.Prepare([&](State& state) { state = loaded; });
  }
  bench.Set("CcfgSkipProgrammingUserRecord", "0");
  EXPECT_THAT(compare().notCompared, ElementsAre("the CCFG's user record"));
}

INSTANTIATE_TEST_SUITE_P(AllDevices, FaultFinderTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

}  // namespace
