#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "SweepBench.h"

// What a load tells of every region and sector, held against the bytes of the chip, wherever the load fails.

namespace {

using host::RegionOutcome;
using View = std::span<const std::uint8_t>;

// Of a place that is told to be so, and its contents: after a load that nothing disturbed, before the load,
// and as they are. Of what failed, nothing is promised; what is told of verifications only is never true.
bool IsTrue(std::string_view told, View good, View before, View now) {
  const bool isGood = std::ranges::equal(now, good), isKept = std::ranges::equal(now, before);
  const bool isErased = std::ranges::all_of(now, [](std::uint8_t byte) { return byte == 0xFF; });
  const std::map<std::string_view, bool> rules = {{"programmed", isGood},
                                                  {"programmed, not verified", isGood},
                                                  {"not verified", isGood},
                                                  {"not reached", isKept || isErased},
                                                  {"not written", isKept || isErased},
                                                  {"skipped", isKept || isErased},
                                                  {"erased", isErased},
                                                  {"retained", isKept},
                                                  {"failed", true},
                                                  {"unknown", true}};
  const auto rule = rules.find(told);
  return rule != rules.end() && rule->second;
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
    const auto check = [&](std::string_view told, host::AddressRange at, host::Region region) {
      EXPECT_TRUE(IsTrue(told, good.At(at.base, at.size, region, map),
                         before.At(at.base, at.size, region, map), now.At(at.base, at.size, region, map)))
          << host::RegionName(region) << " at " << at.base << " is told as " << told;
    };
    bool isAllWell = true;
    for (const host::RegionRecord& region : record.regions) {
      isAllWell = isAllWell && (region.outcome == RegionOutcome::Programmed ||
                                region.outcome == RegionOutcome::Unverified);
      if (region.region == host::Region::Main) continue;  // its sectors say more
      for (const host::AddressRange range : region.ranges)
        check(host::OutcomeText(region.outcome), range, region.region);
    }
    for (std::uint32_t sector = 0; sector < record.sectors.size(); ++sector)
      check(host::SectorStateName(record.sectors[sector]), {sector * map.sectorSize, map.sectorSize},
            host::Region::Main);
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

// What a bar of progress lives on.
TEST_P(ToldOutcomeTest, TellsOfItsProgressAsItGoes) {
  sweep.PutChipBack();
  std::uint64_t planned = 0;
  host::BytesMoved moved{0, 0};
  std::vector<host::Phase> phases;
  const std::uint64_t calls = sweep.bench.services.CallCount();
  const host::LoadRecord record = Load([&](const host::LoadEvent& event) {
    if (const auto* const plan = std::get_if<host::LoadPlanned>(&event)) planned = plan->wireBytes;
    if (const auto* const started = std::get_if<host::PhaseStarted>(&event)) phases.push_back(started->phase);
    const auto* const now = std::get_if<host::BytesMoved>(&event);
    if (now == nullptr) return;
    EXPECT_TRUE(now->bytes > moved.bytes && now->elapsedNs >= moved.elapsedNs) << now->bytes;
    moved = *now;
  });
  EXPECT_EQ(moved.bytes, record.wireBytes);
  EXPECT_EQ(record.hostCalls, sweep.bench.services.CallCount() - calls);
  EXPECT_LE(moved.elapsedNs, record.elapsedNs);
  EXPECT_TRUE(planned > moved.bytes && planned < moved.bytes + 4000) << planned;  // two sectors are retained
  EXPECT_EQ(std::ranges::adjacent_find(phases), phases.end());
  EXPECT_GE(phases.size(), 8U);
}

INSTANTIATE_TEST_SUITE_P(AllDevices, ToldOutcomeTest, testing::ValuesIn(DeviceNames()), DeviceCaseName);

}  // namespace
