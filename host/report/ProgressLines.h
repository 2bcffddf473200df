#pragma once

#include <cstddef>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/report/ProgressBar.h"

namespace host {

// A line for each of several loads that run at once, led by its name: where the load stands, redrawn in
// place, and in the end what became of it. All of them are gone with this object. Where nothing can be
// redrawn, and where there are more loads than the terminal has lines, a plain line for each phase.
class ProgressLines {
 public:
  ProgressLines(std::FILE* stream, std::size_t terminalWidth, ProgressBar::Style linesStyle,
                const std::vector<std::string>& names);
  ~ProgressLines();
  ProgressLines(const ProgressLines&) = delete;
  ProgressLines& operator=(const ProgressLines&) = delete;

  // Null when the stream is no terminal.
  static std::unique_ptr<ProgressLines> For(std::FILE* stream, const std::vector<std::string>& names);

  // From any thread.
  void Take(std::size_t number, const LoadEvent& event);
  void End(std::size_t number, std::string_view word);

 private:
  struct Line {
    std::string name;  // all of one width
    Progress progress;
    std::set<std::string_view> told;
    std::string shown;
  };

  void Draw(std::size_t number, std::string_view text);

  std::FILE* out;
  std::size_t width;
  ProgressBar::Style style;
  std::mutex mutex;  // of all that follows, and of the stream
  std::vector<Line> lines;
};

}  // namespace host
