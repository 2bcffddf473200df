#include "host/load/LoadOutcome.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "host/load/FailurePlace.h"
#include "host/load/SectorTrack.h"

namespace host {

namespace {

struct RegionCommands {
  Region region;
  std::uint8_t program;
  std::uint8_t verify;  // 0: the ROM has no such command
};
constexpr RegionCommands s_commands[] = {
    {Region::Ccfg, saci::kProgramCcfg, saci::kVerifyCcfg},
    {Region::UserRecord, saci::kProgramUserRecord, saci::kVerifyCcfg},
    {Region::Scfg, saci::kProgramScfg, saci::kVerifyScfg},
    {Region::Otp, saci::kProgramOtp, 0},
};

// What a verification compares, in the plug-in's order.
constexpr std::array s_compared = {Region::Main, Region::Ccfg, Region::Scfg};

bool IsWithin(AddressRange inner, AddressRange outer) {
  return inner.base >= outer.base && inner.End() <= outer.End();
}

// Judges one load: functions that share its inputs.
class Judge {
 public:
  Judge(LoadRecord& loadRecord, const LoadPlan& loadPlan, const DeviceDescription& chip,
        const SaciWatch& saciWatch, const LoadCourse& loadCourse)
      : record(loadRecord), plan(loadPlan), device(chip), watch(saciWatch), course(loadCourse) {}

  void Run() {
    record.sectors = TrackSectors(plan, device, watch, course.blocksTaken);
    if (course.error) record.failure = PlaceFailure(*course.error, plan, device, watch, FailedBlock());
    for (RegionRecord& region : record.regions)
      region.outcome = record.mode == LoadMode::Verify ? Compared(region.region) : Written(region.region);
    if (record.mode == LoadMode::Verify) JudgeVerification();
  }

 private:
  // The failing block; null when the load came to its end or failed in it.
  [[nodiscard]] const ImageBlock* FailedBlock() const {
    return course.error && course.blocksTaken < plan.blocks.size() ? &plan.blocks[course.blocksTaken]
                                                                   : nullptr;
  }

  // Whether anything went to a region that the plug-in takes up after this one.
  [[nodiscard]] bool IsPassed(Region region) const {
    const bool anyMemory = std::any_of(watch.Accesses().begin(), watch.Accesses().end(),
                                       [](const MemoryAccess& access) { return access.isWrite; });
    if (anyMemory && region < Region::Ram) return true;
    return std::any_of(watch.Exchanges().begin(), watch.Exchanges().end(), [&](const SaciExchange& exchange) {
      return RegionOf(exchange, plan) > std::optional(region);
    });
  }

  // The outcome of a region that nothing went to.
  [[nodiscard]] RegionOutcome Untouched(Region region) const {
    if (!course.error || IsPassed(region)) return RegionOutcome::NotWritten;
    // The plug-in would not even begin with it.
    return record.failure->region == region ? RegionOutcome::Failed : RegionOutcome::NotReached;
  }

  [[nodiscard]] RegionOutcome Written(Region region) const {
    if (region == Region::Main) return MainWritten();
    if (region == Region::Ram || region == Region::Outside) return MemoryWritten(region);
    const auto* const commands =
        std::find_if(std::begin(s_commands), std::end(s_commands),
                     [&](const RegionCommands& row) { return row.region == region; });
    std::optional<RegionOutcome> outcome;
    for (const SaciExchange& exchange : watch.Exchanges()) {
      if (exchange.command == commands->program) {
        outcome = exchange.HasFailed() ? RegionOutcome::Failed : RegionOutcome::Unverified;
      } else if (outcome && exchange.command == commands->verify && exchange.Compares()) {
        // No answer leaves it programmed; another one than success does not.
        if (!exchange.HasFailed()) outcome = RegionOutcome::Programmed;
        if (exchange.Result().value_or(0) != 0) outcome = RegionOutcome::Failed;
      }
    }
    return outcome.value_or(Untouched(region));
  }

  [[nodiscard]] RegionOutcome MainWritten() const {
    std::size_t programmed = 0, unverified = 0, failed = 0, notReached = 0;
    for (std::size_t sector = 0; sector < record.sectors.size(); ++sector) {
      switch (record.sectors[sector]) {
        case SectorState::Programmed: ++programmed; break;
        case SectorState::Unverified: ++unverified; break;
        case SectorState::Failed: ++failed; break;
        case SectorState::NotReached: ++notReached; break;
        case SectorState::Unknown: failed += IsHandled(sector) ? 1U : 0U; break;
        default: break;
      }
    }
    if (failed != 0) return RegionOutcome::Failed;
    if (programmed + unverified == 0)
      return notReached != 0 ? Untouched(Region::Main) : RegionOutcome::NotWritten;
    if (notReached != 0) return RegionOutcome::Failed;
    return unverified != 0 ? RegionOutcome::Unverified : RegionOutcome::Programmed;
  }

  // An erase that failed leaves sectors unknown that no other command was for.
  [[nodiscard]] bool IsHandled(std::size_t sector) const {
    const auto address = static_cast<std::uint32_t>(sector * record.sectorSize);
    return std::any_of(watch.Exchanges().begin(), watch.Exchanges().end(),
                       [&](const SaciExchange& exchange) { return exchange.MainRange().Contains(address); });
  }

  [[nodiscard]] RegionOutcome MemoryWritten(Region region) const {
    std::size_t verified = 0, unverified = 0, failed = 0, untouched = 0;
    for (const ImageBlock& block : plan.blocks) {
      if (block.region != region) continue;
      std::optional<RegionOutcome> outcome;
      for (const MemoryAccess& access : watch.Accesses()) {
        const bool isHere = IsWithin(block.Range(), access.range) ||
                            (access.hasFailed && block.Range().Contains(access.range.base));
        if (!isHere) continue;
        if (access.hasFailed && access.isWrite) outcome = RegionOutcome::Failed;
        if (!access.hasFailed && access.isWrite) outcome = RegionOutcome::Unverified;
        if (access.equalsWritten)
          outcome = *access.equalsWritten ? RegionOutcome::Programmed : RegionOutcome::Failed;
      }
      if (!outcome) ++untouched;
      if (outcome == RegionOutcome::Programmed) ++verified;
      if (outcome == RegionOutcome::Unverified) ++unverified;
      if (outcome == RegionOutcome::Failed) ++failed;
    }
    if (failed != 0) return RegionOutcome::Failed;
    if (verified + unverified == 0) return Untouched(region);
    if (untouched != 0) return RegionOutcome::Failed;
    return unverified != 0 ? RegionOutcome::Unverified : RegionOutcome::Programmed;
  }

  // What a verification found, by the last comparison of the region; of MAIN flash, by all of them.
  [[nodiscard]] RegionOutcome Compared(Region region) const {
    RegionOutcome outcome = RegionOutcome::NotCompared;
    for (const SaciExchange& exchange : watch.Exchanges()) {
      if (!exchange.Compares() || RegionOf(exchange, plan) != region) continue;
      if (!exchange.HasFailed() && outcome != RegionOutcome::Differs) outcome = RegionOutcome::Verified;
      if (exchange.Result() == saci::kCrcDiffers) outcome = RegionOutcome::Differs;
      if (exchange.HasFailed() && exchange.Result() != saci::kCrcDiffers) outcome = RegionOutcome::Failed;
    }
    return outcome;
  }

  void JudgeVerification() {
    const auto isHeld = [&](Region region) { return record.Find(region) != nullptr; };
    const auto* const missing = std::find_if_not(s_compared.begin(), s_compared.end(), isHeld);
    // The plug-in compares what the images do not hold, too, and stops there: no failure of what they do.
    if (record.failure && missing != s_compared.end() && record.failure->region == *missing)
      record.failure.reset();

    bool anyVerified = false;
    std::string unheeded;
    for (const RegionRecord& region : record.regions) {
      anyVerified = anyVerified || region.outcome == RegionOutcome::Verified;
      if (std::find(s_compared.begin(), s_compared.end(), region.region) == s_compared.end()) {
        unheeded += fmt::format("{}{}", unheeded.empty() ? "" : ", ", RegionName(region.region));
      } else if (region.outcome == RegionOutcome::NotCompared && !record.failure) {
        FailWith(
            fmt::format("{} was not compared: {}", RegionName(region.region), ReasonFor(region, missing)));
      }
    }
    if (!anyVerified && !record.failure)
      FailWith("nothing was compared: the images hold nothing of MAIN flash, CCFG or SCFG");
    if (missing != s_compared.end() && !record.failure)
      record.notes.push_back(fmt::format("the images hold no {}; it was not compared", RegionName(*missing)));
    if (!unheeded.empty() && !record.failure)
      record.notes.push_back(fmt::format("{}: not compared, no verification looks there", unheeded));
  }

  [[nodiscard]] std::string ReasonFor(const RegionRecord& region, const Region* missing) const {
    if (region.region == Region::Main) return "the settings leave out all that the images hold of it";
    if (missing != s_compared.end() && *missing < region.region)
      return fmt::format("the images hold no {}, where the plug-in stops", RegionName(*missing));
    return "the plug-in ended the verification without an outcome";
  }

  void FailWith(const std::string& text) {
    record.failure.emplace();
    record.failure->text = text;
  }

  LoadRecord& record;
  const LoadPlan& plan;
  const DeviceDescription& device;
  const SaciWatch& watch;
  const LoadCourse& course;
};

}  // namespace

void JudgeLoad(LoadRecord& record, const LoadPlan& plan, const DeviceDescription& device,
               const SaciWatch& watch, const LoadCourse& course) {
  Judge(record, plan, device, watch, course).Run();
}

}  // namespace host
