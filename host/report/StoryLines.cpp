#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <set>
#include <span>

#include "host/plan/MemoryText.h"
#include "host/report/StoryText.h"

namespace host {

namespace {

// Behind the times: a call into the plug-in, and what happened in it.
constexpr std::size_t kCallColumn = 25;
constexpr std::size_t kEventColumn = 27;
constexpr std::size_t kMessageRoom = 51;
constexpr std::size_t kFewestFolded = 3;
// Blocks that are only taken: RAM and the configuration are three, and better told apart.
constexpr std::size_t kFewestUneventful = 8;

// The columns before what happened.
std::string Times(std::uint64_t atNs, std::optional<std::uint64_t> endNs, std::uint64_t roundTrips) {
  const std::string took = endNs ? fmt::format("{:.1f}", Milliseconds(*endNs - std::min(atNs, *endNs))) : "";
  return fmt::format("{:>8.1f}{:>9}{:>6}", Milliseconds(atNs), took,
                     roundTrips == 0 ? "" : std::to_string(roundTrips));
}

std::string OneLine(const std::string& text) {
  std::string line = text.substr(0, text.find('\n'));
  if (line.size() <= kMessageRoom) return line;
  std::size_t end = kMessageRoom - 3;
  while (end > 0 && (line[end] & 0xC0) == 0x80) --end;  // within a character
  return line.substr(0, end) + "...";
}

// The exchange that succeeded; null for any other event.
const SaciExchange* Succeeded(const StoryEvent& event) {
  const auto* const told = std::get_if<ToldExchange>(&event.what);
  return told != nullptr && !told->exchange.HasFailed() ? &told->exchange : nullptr;
}

const MemoryAccess* SucceededAccess(const StoryEvent& event) {
  const auto* const access = std::get_if<MemoryAccess>(&event.what);
  return access != nullptr && !access->hasFailed && access->equalsWritten.value_or(true) ? access : nullptr;
}

bool IsAlike(const StoryEvent& one, const StoryEvent& other) {
  if (const SaciExchange* const exchange = Succeeded(one))
    return Succeeded(other) != nullptr && Succeeded(other)->command == exchange->command;
  if (const MemoryAccess* const access = SucceededAccess(one))
    return SucceededAccess(other) != nullptr && SucceededAccess(other)->isWrite == access->isWrite;
  return false;
}

// How many events, from the first, are alike.
std::size_t AlikeEvents(std::span<const StoryEvent> events) {
  const auto other = std::find_if(events.begin() + 1, events.end(),
                                  [&](const StoryEvent& event) { return !IsAlike(events.front(), event); });
  return static_cast<std::size_t>(other - events.begin());
}

AddressRange RangeOf(const StoryEvent& event) {
  if (const auto* const access = std::get_if<MemoryAccess>(&event.what)) return access->range;
  if (const auto* const told = std::get_if<ToldExchange>(&event.what)) return told->exchange.MainRange();
  return {};
}

// A block that did nothing but go to MAIN flash, or be compared with it, as it should; or nothing at all.
bool IsPlainBlock(const ToldCall& call) {
  return call.endNs && !call.failure && call.address && call.bytes &&
         std::all_of(call.events.begin(), call.events.end(), [](const StoryEvent& event) {
           const SaciExchange* const exchange = Succeeded(event);
           return exchange != nullptr && exchange->MainRange().size != 0;
         });
}

std::size_t PlainBlocks(std::span<const ToldCall> calls) {
  const auto other = std::find_if(calls.begin(), calls.end(), [&](const ToldCall& call) {
    return !IsPlainBlock(call) || call.function != calls.front().function ||
           call.events.empty() != calls.front().events.empty();
  });
  return static_cast<std::size_t>(other - calls.begin());
}

// From the lowest address to the highest, and the sum of what is between.
class Extent {
 public:
  void Add(AddressRange range) {
    lowest = std::min<std::uint64_t>(lowest, range.base);
    highest = std::max(highest, range.End());
    bytes += range.size;
  }
  [[nodiscard]] std::string Text() const {
    if (bytes == 0) return "";
    return fmt::format(", 0x{:08x}..0x{:08x}, {}", lowest, highest - 1, Bytes(bytes));
  }

 private:
  std::uint64_t lowest = ~std::uint64_t{0}, highest = 0, bytes = 0;
};

// Writes the lines. Brief, it folds what is alike.
class Lines {
 public:
  Lines(const SessionStory& toldStory, Detail howMuch) : story(toldStory), detail(howMuch) {}

  std::string Write() {
    text = fmt::format("{:>8}{:>9}{:>6}  {}\n", "at ms", "took", "trips", "What happened");
    std::span<const ToldCall> calls = story.calls;
    while (!calls.empty()) calls = calls.subspan(TellSome(calls));
    return std::move(text);
  }

  // A line for an event, behind its times.
  std::string operator()(const ToldExchange& told) const {
    return ExchangeText(told, story.map.sectorSize, detail);
  }
  std::string operator()(const TargetReset& reset) const {
    return reset.intoSaci ? "reset into SACI" : "reset by the pin";
  }
  std::string operator()(const MemoryAccess& access) const {
    std::string what = fmt::format("{} {}, {}", access.isWrite ? "write" : "read", RangeText(access.range),
                                   Bytes(access.range.size));
    if (access.hasFailed) what += ": failed";
    if (access.equalsWritten == false) what += ": not what was written";
    return what;
  }
  std::string operator()(const LoadMessage& message) {
    if (message.isError) return "error: " + message.text;
    const bool isNew = said.insert(message.text).second;
    if (detail == Detail::Whole) return "| " + message.text;
    return isNew ? "| " + OneLine(message.text) : "";
  }
  std::string operator()(const FailedHostCall& call) const {
    return fmt::format("call {} of the host, {}, failed: {}", call.number, call.function, call.error);
  }

 private:
  // Tells the first call, or as many as fold into one line, and says how many these are.
  std::size_t TellSome(std::span<const ToldCall> calls) {
    const std::size_t blocks = detail == Detail::Brief ? PlainBlocks(calls) : 0;
    const std::size_t quiet = detail == Detail::Brief ? QuietCalls(calls) : 0;
    if (blocks >= (calls.front().events.empty() ? kFewestUneventful : kFewestFolded)) {
      FoldBlocks(calls.first(blocks));
      return blocks;
    }
    if (quiet > 1) {
      FoldQuiet(calls.first(quiet));
      return quiet;
    }
    Tell(calls.front());
    return 1;
  }

  void Call(const std::string& times, const std::string& what) {
    text += Wrapped(fmt::format("{:<{}}", times, kCallColumn), what, kEventColumn);
  }
  void Event(const std::string& times, const std::string& what) {
    text += Wrapped(fmt::format("{:<{}}", times, kEventColumn), what, kEventColumn + 2);
  }

  void Tell(const ToldCall& call) {
    const bool isUnended = &call == story.Unended();
    Call(Times(call.beginNs, call.endNs, call.roundTrips),
         CallTitle(call) + (isUnended ? ", which never ended" : ""));
    for (std::span<const StoryEvent> events = call.events; !events.empty();) {
      const std::size_t alike = detail == Detail::Brief ? AlikeEvents(events) : 1;
      if (alike >= kFewestFolded) {
        FoldEvents(events.first(alike));
      } else {
        for (const StoryEvent& event : events.first(alike)) Tell(event);
      }
      events = events.subspan(alike);
    }
    if (call.failure) Event("", "failed: " + call.failure->text);
  }

  void Tell(const StoryEvent& event) {
    const std::string what = std::visit(*this, event.what);
    if (what.empty()) return;
    const bool tookTime = event.endNs != event.beginNs || event.roundTrips != 0;
    Event(tookTime ? Times(event.beginNs, event.endNs, event.roundTrips) : "", what);
  }

  void FoldEvents(std::span<const StoryEvent> events) {
    Extent extent;
    std::uint64_t roundTrips = 0;
    for (const StoryEvent& event : events) {
      extent.Add(RangeOf(event));
      roundTrips += event.roundTrips;
    }
    const auto* const access = SucceededAccess(events.front());
    const std::string name = access == nullptr ? SaciCommandName(Succeeded(events.front())->command)
                             : access->isWrite ? "write"
                                               : "read";
    Event(Times(events.front().beginNs, events.back().endNs, roundTrips),
          fmt::format("{}, {} times{}{}", name, Grouped(events.size()), extent.Text(),
                      access == nullptr ? ": success" : ""));
  }

  void FoldBlocks(std::span<const ToldCall> calls) {
    Extent handed;
    std::uint64_t roundTrips = 0, programmed = 0, compared = 0;  // the latter in bytes
    for (const ToldCall& call : calls) {
      handed.Add({call.address.value_or(0), static_cast<std::uint32_t>(call.bytes.value_or(0))});
      roundTrips += call.roundTrips;
      for (const StoryEvent& event : call.events)
        (Succeeded(event)->command == saci::kVerifyMain ? compared : programmed) += RangeOf(event).size;
    }
    Call(Times(calls.front().beginNs, calls.back().endNs, roundTrips),
         fmt::format("{}, {} times{}", calls.front().function, Grouped(calls.size()), handed.Text()));
    if (programmed != 0 && programmed == compared)
      return Event("", "program and verify MAIN, " + Amount(programmed));
    if (programmed != 0) Event("", "program MAIN, " + Amount(programmed));
    if (compared != 0) Event("", "verify MAIN, " + Amount(compared));
  }
  [[nodiscard]] std::string Amount(std::uint64_t bytes) const {
    const std::uint32_t size = story.map.sectorSize;
    const bool isWhole = size != 0 && bytes % size == 0;
    return (isWhole ? Grouped(bytes / size) + " sectors" : Bytes(bytes)) + ": success";
  }

  // Those that did nothing but say again what is known.
  [[nodiscard]] std::size_t QuietCalls(std::span<const ToldCall> calls) const {
    const auto isKnown = [&](const StoryEvent& event) {
      const auto* const message = std::get_if<LoadMessage>(&event.what);
      return message != nullptr && !message->isError && said.contains(message->text);
    };
    const auto other = std::find_if(calls.begin(), calls.end(), [&](const ToldCall& call) {
      return !call.endNs || call.failure || call.bytes ||
             !std::all_of(call.events.begin(), call.events.end(), isKnown);
    });
    return static_cast<std::size_t>(other - calls.begin());
  }

  void FoldQuiet(std::span<const ToldCall> calls) {
    std::string titles;
    std::uint64_t roundTrips = 0;
    for (const ToldCall& call : calls) {
      titles += (titles.empty() ? "" : "; ") + CallTitle(call);
      roundTrips += call.roundTrips;
    }
    Call(Times(calls.front().beginNs, calls.back().endNs, roundTrips), titles);
  }

  const SessionStory& story;
  const Detail detail;
  std::set<std::string> said;  // messages
  std::string text;
};

}  // namespace

std::string StoryLines(const SessionStory& story, Detail detail) {
  return Lines(story, detail).Write();
}

}  // namespace host
