#include "host/report/StoryText.h"

#include <fmt/format.h>

#include "host/report/FailureText.h"

namespace host {

namespace {

constexpr std::size_t kTitleWidth = 10;
constexpr double kLeastShown = 0.05;  // milliseconds

std::string Titled(std::string_view title, std::string_view what) {
  return Wrapped(fmt::format("{:<{}}", title, kTitleWidth), what, kTitleWidth);
}

std::string HeaderText(const SessionStory& story, const TraceFacts& facts) {
  std::string text = Titled("Recorded", fmt::format("by {}, {} line{}", facts.header.program,
                                                    Grouped(facts.lines), facts.lines == 1 ? "" : "s"));
  text += Titled("Plug-in", facts.header.plugin);
  text += Titled("Device", facts.header.device);
  if (!story.flashSize.empty())
    text += Titled("Found", fmt::format("flash {}, RAM {}, revision {}", story.flashSize, story.ramSize,
                                        story.revision));
  text += Titled("Probe", facts.header.probe);
  for (const std::string& note : NotesOn(story, facts)) text += Titled("Note", note);
  return text;
}

// A row of a table of times; nothing where it would read 0.
std::string TimeRow(std::string_view what, std::uint64_t ns, std::uint64_t wholeNs, const std::string& more) {
  const double ms = Milliseconds(ns);
  if (ms < kLeastShown) return "";
  const double percent = wholeNs == 0 ? 0 : 100 * static_cast<double>(ns) / static_cast<double>(wholeNs);
  return fmt::format("  {:<32}{:>10.1f} ms{:>5.0f} %{}{}\n", what, ms, percent, more.empty() ? "" : "  ",
                     more);
}

std::string PhasesText(const SessionStory& story) {
  std::string text;
  for (std::size_t phase = 0; phase < kPhaseCount; ++phase)
    text += TimeRow(PhaseName(static_cast<Phase>(phase)), story.phaseNs[phase], story.endNs, "");
  return text.empty() ? "" : "\nPhases\n" + text;
}

std::string_view SpendingText(Spending spending) {
  switch (spending) {
    case Spending::Words: return "words to and from the chip";
    case Spending::Memory: return "memory of the chip";
    case Spending::Registers: return "registers of the access ports";
    case Spending::Connections: return "connections and reset pin";
    case Spending::AnswerSleeps: return "sleeps until the chip answers";
    case Spending::OtherSleeps: return "other sleeps of the plug-in";
    case Spending::OtherCalls: return "settings and messages";
    case Spending::Outside: return "outside of calls into the host";
    case Spending::RoundTrips: return "round trips to the probe";
  }
  return "?";
}

std::string CountText(const TimeShare& share, const TimeSpent& time) {
  if (share.spending == Spending::RoundTrips)
    return fmt::format("{} of {:.2f} ms", Grouped(share.count), Milliseconds(time.RoundTripNs()));
  if (share.bytes != 0) return Bytes(share.bytes);
  return share.count == 0 ? "" : fmt::format("{} call{}", Grouped(share.count), share.count == 1 ? "" : "s");
}

std::string TimeText(const SessionStory& story) {
  std::string text;
  for (const TimeShare& share : story.time.Shares())
    text += TimeRow(SpendingText(share.spending), share.ns, story.endNs, CountText(share, story.time));
  if (text.empty()) return "";
  return "\nWhere the time went\n" + text + TimeRow("in all", story.endNs, story.endNs, "");
}

std::string FailedText(const SessionStory& story) {
  const ToldCall* const call = story.Failed();
  if (call == nullptr) return "";
  constexpr std::size_t kIndent = kTitleWidth + 2;
  const auto line = [](std::string_view title, std::string_view what) {
    return Wrapped(fmt::format("  {:<{}}", title, kTitleWidth), what, kIndent);
  };
  std::string text = "\nFailure\n" + line("Call", CallTitle(*call)) + line("Text", call->failure->text);
  // Each of these has its title in front, as wide as those above.
  const std::string known = FailureText(FailedLoad(story));
  for (std::string_view rest = known; !rest.empty(); rest.remove_prefix(rest.find('\n') + 1))
    text += Wrapped(rest.substr(0, kIndent), rest.substr(kIndent, rest.find('\n') - kIndent), kIndent);
  return text;
}

}  // namespace

std::string StoryText(const SessionStory& story, const TraceFacts& facts, Detail detail) {
  return HeaderText(story, facts) + "\n" + StoryLines(story, detail) + PhasesText(story) + TimeText(story) +
         FailedText(story);
}

std::string CallTitle(const ToldCall& call) {
  if (call.function.empty()) return "outside of any call";
  std::string title = call.function;
  if (!call.subject.empty()) title += " " + call.subject;
  if (call.address) title += fmt::format(" 0x{:08x}", *call.address);
  if (call.bytes) title += ", " + Bytes(*call.bytes);
  return title;
}

std::vector<std::string> NotesOn(const SessionStory& story, const TraceFacts& facts) {
  std::vector<std::string> notes;
  if (facts.isCut) notes.push_back(fmt::format("line {} is cut, and left out here", facts.lines + 1));
  if (const ToldCall* const unended = story.Unended()) {
    const std::string after =
        story.lastHostCall == 0 ? "" : fmt::format(", after call {} of the host", story.lastHostCall);
    notes.push_back(fmt::format("the trace ends in {}{}: the process was stopped there, or the trace is cut",
                                CallTitle(*unended), after));
  } else if (!story.IsWhole()) {
    notes.emplace_back("the trace ends before Delete: the process was stopped, or the trace is cut");
  }
  if (story.isIncomplete) notes.emplace_back("there were more commands than are told here");
  return notes;
}

LoadRecord FailedLoad(const SessionStory& story) {
  LoadRecord record;
  record.sectorSize = story.map.sectorSize;
  if (const ToldCall* const call = story.Failed()) {
    record.mode = call->mode;
    record.failure = story.NarrowFailure();
  }
  return record;
}

}  // namespace host
