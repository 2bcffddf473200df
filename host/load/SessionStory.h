#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "host/device/MemoryMap.h"
#include "host/load/LoadRecord.h"
#include "host/load/TimeSpent.h"
#include "host/plugin/SaciWatch.h"

namespace host {

struct ToldExchange {
  SaciExchange exchange;
  std::uint64_t sleptNs = 0;  // of the plug-in, for want of an answer
};
struct FailedHostCall {
  std::uint64_t number = 0;
  std::string function;
  std::string error;
};

// What happened; a command, from its header to the end of its answer or of the wait for one.
struct StoryEvent {
  std::uint64_t beginNs = 0, endNs = 0;
  std::uint64_t roundTrips = 0;
  std::variant<ToldExchange, TargetReset, MemoryAccess, LoadMessage, FailedHostCall> what;
};

// One call into the plug-in, and what it did with the chip.
struct ToldCall {
  std::string function;  // empty: calls into the host that were made outside of any
  std::string subject;
  std::optional<std::uint32_t> address{};
  std::optional<std::uint64_t> bytes{};
  std::uint64_t beginNs = 0;
  std::optional<std::uint64_t> endNs{};  // nothing: it never ended
  std::vector<StoryEvent> events{};
  std::uint64_t hostCalls = 0;
  std::uint64_t roundTrips = 0;
  LoadMode mode = LoadMode::Program;     // of the load that it is a part of
  std::optional<LoadFailure> failure{};  // placed by what went over the wire
};

// A session from first to last.
struct SessionStory {
  std::vector<ToldCall> calls;
  MemoryMap map;                             // as far as the plug-in asked for it
  std::string flashSize, ramSize, revision;  // as it found them; empty when it did not
  std::array<std::uint64_t, kPhaseCount> phaseNs{};
  TimeSpent time;
  std::uint64_t endNs = 0;         // of the last call
  std::uint64_t lastHostCall = 0;  // by number
  bool isIncomplete = false;       // more happened than is kept

  // The call that the process was stopped in; null when there is none.
  [[nodiscard]] const ToldCall* Unended() const;
  // Nothing was missing: whatever device was made has been deleted.
  [[nodiscard]] bool IsWhole() const;
  // The first that failed, which all later ones may come from; null when none did. Where anything was
  // programmed, comparisons that found a difference are none.
  [[nodiscard]] const ToldCall* Failed() const;
  // Its failure, as narrow as later comparisons found it. Needs a call that failed.
  [[nodiscard]] LoadFailure NarrowFailure() const;
};

// Writes the story of what it observes.
class StoryTeller final : public HostCallObserver {
 public:
  void Saw(const HostCall& call, std::uint64_t elapsedNs) override;
  void Begins(const PluginCall& call, std::uint64_t elapsedNs) override;
  void Ends(const PluginCall& call, std::uint64_t elapsedNs) override;

  [[nodiscard]] SessionStory Take();

 private:
  struct Place {
    std::size_t call, event;
  };

  std::uint64_t Since(std::uint64_t elapsedNs);
  ToldCall& Current();
  void Learn(const HostCall& call);
  void Watch(const HostCall& call, std::uint64_t tookNs);
  void Follow(const HostCall& call, std::uint64_t tookNs, StoryEvent& event);
  void FinishDevice();
  [[nodiscard]] LoadFailure PlaceIn(const ToldCall& call, const std::string& text) const;

  SessionStory story;
  SaciWatch watch;  // of the present device
  LoadMode mode = LoadMode::Program;
  std::uint64_t lastNs = 0;
  std::uint64_t firstCall = 0;     // of the host, in the present call of the plug-in; 0: none yet
  bool isWithin = false;           // a call of the plug-in
  std::optional<Place> present;    // the last exchange, in the story
  bool isAnswerDue = false;        // to words that were sent
  std::uint64_t pendingTrips = 0;  // since the present exchange last moved
};

}  // namespace host
