#pragma once

#include <cstdint>
#include <cstdio>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "host/load/LoadEvents.h"

namespace host {

// Where a load stands.
struct Progress {
  Phase phase = Phase::Identify;
  std::uint64_t bytes = 0;     // over the wire
  std::uint64_t expected = 0;  // 0 when that cannot be told
  std::uint64_t elapsedNs = 0;

  void Take(const LoadEvent& event);
};

// The phase in a word or two, as a person waits for it.
std::string_view PhaseTitle(Phase phase);

// One line that is redrawn while a load runs: phase, share done, rate and time left, by the probe's clock.
class ProgressBar {
 public:
  enum class Style {
    Redrawn,  // one line that is drawn again and again, with terminal escapes
    Lines,    // a plain line for each phase, as where TERM is "dumb"
  };

  // Draws to `stream`, lines of at most `terminalWidth` characters.
  ProgressBar(std::FILE* stream, std::size_t terminalWidth, Style barStyle)
      : out(stream), width(terminalWidth), style(barStyle) {}

  // The bar for a stream, by the width of its terminal and by TERM; nothing when it is no terminal.
  static std::optional<ProgressBar> For(std::FILE* stream);

  void Take(const LoadEvent& event);
  // Wipes the line, so that another can be written; the next event draws it again.
  void Clear();

  // The line without its end: never longer than `width`, what matters least left out first.
  static std::string Line(const Progress& progress, std::size_t width);

 private:
  void Draw(const std::string& line);

  std::FILE* out;
  std::size_t width;
  Style style;
  Progress progress;
  std::set<std::string_view> told;  // phases, each once
  std::string shown;                // redrawn only when it changes: a load moves bytes some thousand times
};

}  // namespace host
