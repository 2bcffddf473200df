#include "host/report/ProgressBar.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "host/report/Terminal.h"

namespace host {

namespace {

constexpr std::size_t kMostCells = 40;
constexpr std::size_t kFewestCells = 8;
constexpr std::uint64_t kFirstEstimate = 2;  // percent done from which the rate says something

}  // namespace

std::string_view PhaseTitle(Phase phase) {
  switch (phase) {
    case Phase::Identify:
    case Phase::Reset: return "connect";
    case Phase::Erase: return "erase";
    case Phase::ProgramMain: return "program";
    case Phase::VerifyMain: return "verify";
    case Phase::Ccfg:
    case Phase::Scfg:
    case Phase::Otp: return "configuration";
    case Phase::Ram: return "RAM";
    case Phase::Authenticate: return "unlock";
    case Phase::Hsm: return "HSM";
  }
  return "";
}

void Progress::Take(const LoadEvent& event) {
  if (const auto* planned = std::get_if<LoadPlanned>(&event)) {
    *this = {.expected = planned->wireBytes};
  } else if (const auto* started = std::get_if<PhaseStarted>(&event)) {
    phase = started->phase;
  } else if (const auto* moved = std::get_if<BytesMoved>(&event)) {
    bytes = moved->bytes;
    elapsedNs = moved->elapsedNs;
  }
}

std::string ProgressBar::Line(const Progress& progress, std::size_t width) {
  // Commands and configuration words come on top of the estimate; the bar waits for them at its end.
  const std::uint64_t done = std::min(progress.bytes, progress.expected);
  const std::string title = fmt::format("{:<13}", PhaseTitle(progress.phase));
  if (progress.expected == 0) return title.substr(0, width);

  const std::uint64_t percent = done * 100 / progress.expected;
  const double seconds = static_cast<double>(progress.elapsedNs) / 1e9;
  const double rate = seconds > 0 ? static_cast<double>(progress.bytes) / seconds : 0;
  std::string line = fmt::format("{} {:3}%", title, percent);
  if (line.size() > width) return fmt::format("{:3}%", percent).substr(0, width);
  const auto append = [&](const std::string& part) {
    if (line.size() + part.size() <= width) line += part;
  };
  if (percent >= kFirstEstimate && rate > 0)
    append(fmt::format("  {:.1f} s left", static_cast<double>(progress.expected - done) / rate));
  // The bar takes what is left beside the figures that come after it.
  const std::string figures =
      fmt::format("  {:.1f} of {:.1f} KiB  {:.0f} KiB/s", static_cast<double>(progress.bytes) / 1024,
                  static_cast<double>(progress.expected) / 1024, rate / 1024);
  constexpr std::size_t kFrame = 3;  // a space and the brackets
  if (line.size() + figures.size() + kFrame + kFewestCells <= width) line += figures;
  if (line.size() + kFrame + kFewestCells > width) return line;
  const std::size_t cells = std::min(kMostCells, width - line.size() - kFrame);
  const auto filled = static_cast<std::size_t>(done * cells / progress.expected);
  return line.insert(title.size(), fmt::format(" [{:<{}}]", std::string(filled, '#'), cells));
}

std::optional<ProgressBar> ProgressBar::For(std::FILE* stream) {
  const std::optional<Terminal> terminal = TerminalOf(stream);
  if (!terminal) return std::nullopt;
  return ProgressBar(stream, terminal->width, terminal->isDumb ? Style::Lines : Style::Redrawn);
}

void ProgressBar::Take(const LoadEvent& event) {
  progress.Take(event);
  if (std::holds_alternative<LoadMessage>(event) || std::holds_alternative<LoadEnded>(event)) return Clear();
  if (std::holds_alternative<LoadPlanned>(event)) told = {};
  if (const auto* started = std::get_if<PhaseStarted>(&event)) {
    // Program and verify take turns at every block: each is told once.
    const std::string_view title = PhaseTitle(started->phase);
    const bool isNew = told.insert(title).second;
    if (style == Style::Lines && isNew) fmt::print(out, "{}\n", title.substr(0, width));
  }
  if (style == Style::Redrawn) Draw(Line(progress, width));
}

void ProgressBar::Clear() {
  Draw("");
}

void ProgressBar::Draw(const std::string& line) {
  if (style != Style::Redrawn || line == shown) return;
  shown = line;
  // Return to the line's start, wipe to its end, and stay on it.
  fmt::print(out, "\r\x1b[K{}", line);
  std::fflush(out);
}

}  // namespace host
