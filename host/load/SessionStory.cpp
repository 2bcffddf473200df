#include "host/load/SessionStory.h"

#include <algorithm>
#include <utility>

#include "host/device/Number.h"
#include "host/load/FailurePlace.h"

namespace host {

namespace {

void LearnFact(std::string_view name, std::string_view text, MemoryMap& map) {
  const struct {
    std::string_view name;
    std::uint32_t& value;
  } facts[] = {
      {"SectorSize", map.sectorSize}, {"CcfgBase", map.ccfg.base}, {"CcfgSize", map.ccfg.size},
      {"ScfgBase", map.scfg.base},    {"ScfgSize", map.scfg.size}, {"OtpBase", map.otp.base},
      {"OtpSize", map.otp.size},
  };
  for (const auto& fact : facts)
    if (fact.name == name) fact.value = static_cast<std::uint32_t>(ParseHexNumber(text).value_or(0));
}

bool IsMismatch(const LoadFailure& failure) {
  return failure.command == saci::kVerifyMain && failure.result == saci::kCrcDiffers;
}

}  // namespace

const ToldCall* SessionStory::Unended() const {
  return !calls.empty() && !calls.back().endNs && !calls.back().function.empty() ? &calls.back() : nullptr;
}

bool SessionStory::IsWhole() const {
  if (calls.empty() || !calls.back().endNs) return false;
  const ToldCall& last = calls.back();
  // Whoever gets no device has nothing to delete.
  return last.function == "Delete" || (last.function == "CreateFlashDevice4" && last.failure);
}

const ToldCall* SessionStory::Failed() const {
  // A load may begin with a comparison that says whether it is needed.
  const bool anyLoad = std::any_of(calls.begin(), calls.end(), [](const ToldCall& call) {
    return call.bytes && call.mode == LoadMode::Program;
  });
  const auto failed = std::find_if(calls.begin(), calls.end(), [&](const ToldCall& call) {
    return call.failure && (call.mode == LoadMode::Program || !anyLoad);
  });
  return failed == calls.end() ? nullptr : &*failed;
}

// After a mismatch the host looks for the sector, with one comparison after the other.
LoadFailure SessionStory::NarrowFailure() const {
  LoadFailure narrow = Failed()->failure.value();
  if (!IsMismatch(narrow)) return narrow;
  for (const ToldCall& call : calls) {
    if (!call.failure || !IsMismatch(*call.failure)) continue;
    const AddressRange range = call.failure->range;
    if (!narrow.range.Contains(range.base) || range.End() > narrow.range.End()) continue;
    narrow.range = range;
    narrow.firstSector = call.failure->firstSector;
  }
  return narrow;
}

void StoryTeller::Saw(const HostCall& call, std::uint64_t elapsedNs) {
  const std::uint64_t tookNs = Since(elapsedNs);
  ToldCall& current = Current();
  if (firstCall == 0) firstCall = call.number;
  ++current.hostCalls;
  current.roundTrips += call.roundTrips;
  story.lastHostCall = call.number;
  story.time.Add(call, tookNs, isAnswerDue);
  Learn(call);
  Watch(call, tookNs);
  const auto note = [&](auto what) {
    current.events.push_back({lastNs - tookNs, lastNs, call.roundTrips, std::move(what)});
  };
  if (call.function == "ReportError" || call.function == "ReportInfo")
    note(LoadMessage{call.function == "ReportError", std::string(call.subject.value_or(""))});
  if (call.error) note(FailedHostCall{call.number, std::string(call.function), std::string(*call.error)});
}

void StoryTeller::Begins(const PluginCall& call, std::uint64_t elapsedNs) {
  story.time.AddOutside(Since(elapsedNs));
  if (call.function == "CreateFlashDevice4") FinishDevice();
  ToldCall told;
  told.function = call.function;
  told.subject = call.subject.value_or("");
  told.address = call.address;
  told.bytes = call.bytes;
  told.beginNs = lastNs;
  story.calls.push_back(std::move(told));
  isWithin = true;
  firstCall = 0;
}

void StoryTeller::Ends(const PluginCall& call, std::uint64_t elapsedNs) {
  story.time.AddOutside(Since(elapsedNs));
  ToldCall& current = Current();
  current.endNs = lastNs;
  current.mode = mode;
  if (call.error) current.failure = PlaceIn(current, std::string(*call.error));
  isWithin = false;
  isAnswerDue = false;
}

SessionStory StoryTeller::Take() {
  FinishDevice();
  story.endNs = lastNs;
  return std::move(story);
}

// A clock that runs backwards stands still here.
std::uint64_t StoryTeller::Since(std::uint64_t elapsedNs) {
  const std::uint64_t beforeNs = std::exchange(lastNs, std::max(lastNs, elapsedNs));
  return lastNs - beforeNs;
}

ToldCall& StoryTeller::Current() {
  if (!isWithin) {
    story.calls.emplace_back().beginNs = lastNs;
    isWithin = true;
    firstCall = 0;
  }
  return story.calls.back();
}

// What the plug-in asks for and finds out, and by which a failure is placed.
void StoryTeller::Learn(const HostCall& call) {
  if (!call.subject || !call.text) return;
  if (call.function == "GetValueOfProperty") {
    LearnFact(*call.subject, *call.text, story.map);
    if (call.subject == "ImageVerificationSetting")
      mode = *call.text == "1" ? LoadMode::Verify : LoadMode::Program;
  } else if (call.function == "SetValueOfProperty") {
    if (call.subject == "DeviceInfoFlashSize") story.flashSize = *call.text;
    if (call.subject == "DeviceInfoRAMSize") story.ramSize = *call.text;
    if (call.subject == "DeviceInfoRevision") story.revision = *call.text;
  }
}

// Tells what the watch has newly seen.
void StoryTeller::Watch(const HostCall& call, std::uint64_t tookNs) {
  std::vector<StoryEvent>& events = story.calls.back().events;
  const std::size_t exchanges = watch.Exchanges().size();
  const std::size_t resets = watch.Resets().size();
  const std::size_t accesses = watch.Accesses().size();
  watch.Saw(call, lastNs);
  const auto note = [&](auto what) {
    events.push_back({lastNs - tookNs, lastNs, call.roundTrips, std::move(what)});
  };
  if (watch.Resets().size() != resets) {
    note(watch.Resets().back());
    isAnswerDue = false;
  }
  if (watch.Accesses().size() != accesses) note(watch.Accesses().back());
  if (watch.Exchanges().size() != exchanges) {
    present = Place{story.calls.size() - 1, events.size()};
    note(ToldExchange{});
    events.back().roundTrips = pendingTrips = 0;
  }
  if (present) Follow(call, tookNs, story.calls[present->call].events[present->event]);
}

// The present exchange grows with every word, and with every wait for one.
void StoryTeller::Follow(const HostCall& call, std::uint64_t tookNs, StoryEvent& event) {
  const SaciExchange& seen = watch.Exchanges().back();
  auto& told = std::get<ToldExchange>(event.what);
  const bool moves = seen.lastCall == call.number;
  pendingTrips += call.roundTrips;
  if (moves || isAnswerDue) {
    told.exchange = seen;
    event.endNs = lastNs;
    event.roundTrips += std::exchange(pendingTrips, 0);
  }
  if (isAnswerDue && call.function == "Sleep") told.sleptNs += tookNs;
  if (!moves || call.error) return;
  // A stream owes an answer for each sector; one of success is for those before.
  const bool owesAnswer = seen.HasFailed() || seen.command == saci::kProgramPipelined;
  isAnswerDue = call.function == "WriteMemory" && owesAnswer;
}

// Each device is a session of its own with the chip.
void StoryTeller::FinishDevice() {
  for (std::size_t phase = 0; phase < kPhaseCount; ++phase)
    story.phaseNs[phase] += watch.NsOf(static_cast<Phase>(phase));
  story.isIncomplete = story.isIncomplete || watch.IsIncomplete();
  watch = SaciWatch();
  mode = LoadMode::Program;
  present.reset();
  isAnswerDue = false;
}

// An exchange that ended before this call began has nothing to do with its failure. What cannot be placed
// lies in the block that was handed over.
LoadFailure StoryTeller::PlaceIn(const ToldCall& call, const std::string& text) const {
  const bool hasExchange =
      !watch.Exchanges().empty() && firstCall != 0 && watch.Exchanges().back().lastCall >= firstCall;
  const bool hasAccess =
      !watch.Accesses().empty() && firstCall != 0 && watch.Accesses().back().call >= firstCall;
  LoadFailure failure{.text = text, .phase = watch.Present()};
  if (hasExchange || hasAccess) {
    DeviceDescription device;
    device.map = story.map;
    failure = PlaceFailure(text, {}, device, watch, nullptr);
  }
  if (failure.range.size != 0 || !call.address || !call.bytes || failure.phase <= Phase::Erase)
    return failure;
  failure.range = {*call.address, static_cast<std::uint32_t>(*call.bytes)};
  if (hasExchange && RegionOf(watch.Exchanges().back(), {}) == Region::Main && story.map.sectorSize != 0) {
    failure.region = Region::Main;
    failure.firstSector = *call.address / story.map.sectorSize;
  }
  return failure;
}

}  // namespace host
