#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "SweepBench.h"

// What a load tells of every region and sector, held against the bytes of the chip, wherever the load fails.

namespace {

using host::RegionOutcome;
using host::SectorState;
using View = std::span<const std::uint8_t>;

// The contents of a place: after a load that nothing disturbed, before the load, and as they are.
struct Contents {
  View good, before, now;

  [[nodiscard]] bool IsGood() const { return std::ranges::equal(now, good); }
  [[nodiscard]] bool IsKept() const { return std::ranges::equal(now, before); }
  [[nodiscard]] bool IsErased() const {
    return std::ranges::all_of(now, [](std::uint8_t byte) { return byte == 0xFF; });
  }
};

// The rules. Of what failed, nothing is promised; what is told of verifications only is never true.
bool IsTrue(RegionOutcome told, const Contents& contents) {
  switch (told) {
    case RegionOutcome::Programmed:
    case RegionOutcome::Unverified: return contents.IsGood();
    case RegionOutcome::NotReached:
    case RegionOutcome::NotWritten: return contents.IsKept() || contents.IsErased();
    case RegionOutcome::Failed: return true;
    default: return false;
  }
}

bool IsTrue(SectorState told, const Contents& contents) {
  switch (told) {
    case SectorState::Programmed:
    case SectorState::Unverified: return contents.IsGood();
    case SectorState::NotReached:
    case SectorState::Skipped: return contents.IsKept() || contents.IsErased();
    case SectorState::Erased: return contents.IsErased();
    case SectorState::Retained: return contents.IsKept();
    case SectorState::Failed:
    case SectorState::Unknown: return true;
    default: return false;
  }
}

class ToldOutcomeTest : public testing::TestWithParam<std::string> {
 protected:
  ToldOutcomeTest() {
    sweep.PutChipBack();
    before = Picture();
    const host::LoadRecord record = Load();
    EXPECT_EQ(Outcome(record), "ok");
    good = Picture();
    ExpectTruth(record);
  }

  host::ChipPicture Picture() { return sweep.bench.probe.Picture(); }

  host::LoadRecord Load(const host::LoadEventSink& sink = {}) {
    host::LoadRecord record = host::PlannedLoad(sweep.plan, {}, sweep.bench.device, sweep.bench.settings);
    host::LoadSession(sweep.bench.Target()).Run(sweep.plan, record, sink);
    return record;
  }

  std::optional<host::LoadFailure> FailureWith(const std::string& fault) {
    SCOPED_TRACE(fault);
    sweep.PutChipBack();
    sweep.bench.Chip().AskedFaults().Add(fault);
    const host::LoadRecord record = Load();
    ExpectTruth(record);
    return record.failure;
  }

  void ExpectTruth(const host::LoadRecord& record) {
    const host::MemoryMap& map = sweep.bench.device.map;
    const host::ChipPicture now = Picture();
    const auto at = [&](host::AddressRange range, host::Region region) {
      return Contents{good.At(range.base, range.size, region, map),
                      before.At(range.base, range.size, region, map),
                      now.At(range.base, range.size, region, map)};
    };
    bool isAllWell = true;
    for (const host::RegionRecord& region : record.regions) {
      isAllWell = isAllWell && (region.outcome == RegionOutcome::Programmed ||
                                region.outcome == RegionOutcome::Unverified);
      if (region.region == host::Region::Main) continue;  // its sectors say more
      for (const host::AddressRange range : region.ranges)
        EXPECT_TRUE(IsTrue(region.outcome, at(range, region.region)))
            << host::RegionName(region.region) << " is told as " << host::OutcomeText(region.outcome);
    }
    for (std::uint32_t sector = 0; sector < record.sectors.size(); ++sector)
      EXPECT_TRUE(
          IsTrue(record.sectors[sector], at({sector * map.sectorSize, map.sectorSize}, host::Region::Main)))
          << "sector " << sector << " is told as " << host::SectorStateName(record.sectors[sector]);
    EXPECT_TRUE(isAllWell || record.failure || record.HasErrorMessages());
    EXPECT_FALSE(isAllWell && record.failure && record.failure->region) << record.failure->text;
  }

  SweepBench sweep{SweepCase{GetParam()}};
  host::ChipPicture good, before;
};

TEST_P(ToldOutcomeTest, IsWhatTheChipHoldsWhicheverAnswerFails) {
  for (const char* action : {"result=0x84", "result=0x87", "lost", "wrong-id", "hang"}) {
    int failures = 0;
    // More answers than a load gets; some that fail do not end it.
    for (int nth = 1; nth <= 40; nth += kSampled ? 3 : 1)
      failures += FailureWith(fmt::format("saci:*:nth={}:{}", nth, action)) ? 1 : 0;
    EXPECT_GE(failures, kSampled ? 4 : 12) << action;
  }
}

TEST_P(ToldOutcomeTest, IsWhatTheChipHoldsWhicheverCellFails) {
  for (const host::ImageBlock& block : sweep.plan.blocks) {
    // Nothing compares OTP, and retained sectors are not programmed.
    if (block.region == host::Region::Otp || block.address / kSectorSize == 40) continue;
    const char* const kind = block.region == host::Region::Ram ? "ram" : "cell";
    EXPECT_TRUE(FailureWith(fmt::format("{}:0x{:x}", kind, block.address))) << host::RegionName(block.region);
  }
}

TEST_P(ToldOutcomeTest, IsWhatTheChipHoldsWhereverTheHostFails) {
  constexpr std::uint64_t kStep = kSampled ? 49 : 7;  // every call in turn is HostFaultSweep's
  host::HostServices& services = sweep.bench.services;
  bool hasFailed = true;
  for (std::uint64_t call = 1; hasFailed; call += kStep) {
    SCOPED_TRACE(call);
    sweep.PutChipBack();
    services.Fail({.call = services.CallCount() + call, .text = "probe unplugged"});
    const host::LoadRecord record = Load();
    ExpectTruth(record);
    hasFailed = record.failure.has_value();
  }
}

TEST_P(ToldOutcomeTest, NamesThePlaceOfAFailure) {
  const host::MemoryMap& map = sweep.bench.device.map;
  const struct {
    const char* fault;
    host::Phase phase;
    std::optional<host::Region> region;
    host::AddressRange range;
    std::optional<std::uint8_t> result;
  } cases[] = {
      {"saci:9:result=0x84", host::Phase::Erase, {}, {}, 0x84},
      {"saci:15:nth=3:result=0x84", host::Phase::ProgramMain, host::Region::Main, {0x2800, 0x800}, 0x84},
      {"saci:16:nth=2:lost", host::Phase::VerifyMain, host::Region::Main, {0x2000, 0x1000}, {}},
      {"saci:12:result=0x86", host::Phase::Ccfg, host::Region::Ccfg, map.ccfg, 0x86},
      {"saci:27:result=0x87", host::Phase::Scfg, host::Region::Scfg, map.scfg, 0x87},
  };
  for (const auto& c : cases) {
    const std::optional<host::LoadFailure> failure = FailureWith(c.fault);
    ASSERT_TRUE(failure) << c.fault;
    EXPECT_TRUE(failure->phase == c.phase && failure->region == c.region && failure->range == c.range &&
                failure->result == c.result)
        << c.fault << ": " << failure->text;
  }
}

TEST_P(ToldOutcomeTest, IsWhatTheChipHoldsWhenTheUserEndsTheLoad) {
  sweep.PutChipBack();
  const host::LoadRecord record = Load([&](const host::LoadEvent& event) {
    const auto* const started = std::get_if<host::PhaseStarted>(&event);
    if (started != nullptr && started->phase == host::Phase::Scfg) sweep.bench.services.Cancel();
  });
  EXPECT_TRUE(record.isInterrupted);
  EXPECT_EQ(Outcome(record), "cancelled");
  EXPECT_EQ(record.Find(host::Region::Ccfg)->outcome, RegionOutcome::Programmed);
  ExpectTruth(record);
}

INSTANTIATE_TEST_SUITE_P(AllDevices, ToldOutcomeTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

}  // namespace
