#include "host/report/ProgressLines.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/report/Terminal.h"

namespace host {

namespace {

// Of paths and serial numbers, the end tells them apart.
std::string LastOf(const std::string& name, std::size_t length) {
  return name.substr(name.size() - std::min(name.size(), length));
}

}  // namespace

ProgressLines::ProgressLines(std::FILE* stream, std::size_t terminalWidth, ProgressBar::Style linesStyle,
                             const std::vector<std::string>& names)
    : out(stream),
      width(terminalWidth - std::min<std::size_t>(terminalWidth, 1)),  // never wrapped
      style(linesStyle) {
  std::size_t column = 0;
  for (const std::string& name : names) column = std::max(column, name.size());
  column = std::min(column, width / 3);
  for (const std::string& name : names) {
    Line line;
    line.name = fmt::format("{:<{}}  ", LastOf(name, column), column);
    line.shown = line.name.substr(0, width);
    if (style == ProgressBar::Style::Redrawn) fmt::print(out, "{}\n", line.shown);
    lines.push_back(std::move(line));
  }
  std::fflush(out);
}

ProgressLines::~ProgressLines() {
  if (style == ProgressBar::Style::Redrawn) std::fprintf(out, "\x1b[%zuA\r\x1b[J", lines.size());
  std::fflush(out);
}

std::unique_ptr<ProgressLines> ProgressLines::For(std::FILE* stream, const std::vector<std::string>& names) {
  const std::optional<Terminal> terminal = TerminalOf(stream);
  if (!terminal) return nullptr;
  const bool isRedrawn = !terminal->isDumb && names.size() < terminal->height;
  return std::make_unique<ProgressLines>(
      stream, terminal->width, isRedrawn ? ProgressBar::Style::Redrawn : ProgressBar::Style::Lines, names);
}

void ProgressLines::Take(std::size_t number, const LoadEvent& event) {
  const std::lock_guard lock(mutex);
  Line& line = lines[number];
  line.progress.Take(event);
  if (style == ProgressBar::Style::Redrawn) {
    Draw(number, ProgressBar::Line(line.progress, width - std::min(width, line.name.size())));
  } else if (const auto* started = std::get_if<PhaseStarted>(&event)) {
    const std::string_view title = PhaseTitle(started->phase);
    if (line.told.insert(title).second) Draw(number, title);
  }
}

void ProgressLines::End(std::size_t number, std::string_view word) {
  const std::lock_guard lock(mutex);
  Draw(number, word);
}

void ProgressLines::Draw(std::size_t number, std::string_view text) {
  Line& line = lines[number];
  const std::string whole = (line.name + std::string(text)).substr(0, width);
  if (whole == line.shown) return;
  line.shown = whole;
  if (style == ProgressBar::Style::Lines) {
    fmt::print(out, "{}\n", whole);
  } else {
    // Up to the load's line, wipe it to its end, and back below the last one.
    const std::size_t up = lines.size() - number;
    fmt::print(out, "\x1b[{0}A\r\x1b[K{1}\x1b[{0}B\r", up, whole);
  }
  std::fflush(out);
}

}  // namespace host
