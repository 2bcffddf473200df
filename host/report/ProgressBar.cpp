#include "host/report/ProgressBar.h"

#include <fmt/format.h>

#include <algorithm>

namespace host {

namespace {
constexpr std::uint64_t kCells = 32;
constexpr std::uint64_t kFirstEstimate = 2;  // percent done from which the rate says something
}  // namespace

std::string ProgressBar::Line(std::uint64_t bytes, std::uint64_t expected, std::uint64_t elapsedNs) {
  // Commands and configuration words come on top of the estimate; the bar waits for them at its end.
  const std::uint64_t done = std::min(bytes, expected);
  const std::uint64_t filled = expected == 0 ? 0 : done * kCells / expected;
  const double seconds = static_cast<double>(elapsedNs) / 1e9;
  const double rate = seconds > 0 ? static_cast<double>(bytes) / seconds : 0;
  const std::uint64_t percent = expected == 0 ? 0 : done * 100 / expected;
  const std::string left = percent < kFirstEstimate || rate <= 0
                               ? ""
                               : fmt::format("  {:.1f} s left", static_cast<double>(expected - done) / rate);
  return fmt::format("[{:<{}}] {:3}%  {:.1f} of {:.1f} kB  {:.0f} kB/s{}", std::string(filled, '#'), kCells,
                     percent, static_cast<double>(bytes) / 1e3, static_cast<double>(expected) / 1e3,
                     rate / 1e3, left);
}

void ProgressBar::Take(const LoadEvent& event) {
  if (const auto* planned = std::get_if<LoadPlanned>(&event)) {
    expected = planned->wireBytes;
  } else if (const auto* moved = std::get_if<BytesMoved>(&event)) {
    if (expected == 0) return;
    const int permille = static_cast<int>(std::min(moved->bytes, expected) * 1000 / expected);
    if (permille == shownPermille) return;
    shownPermille = permille;
    Draw(Line(moved->bytes, expected, moved->elapsedNs));
  } else {
    Clear();
  }
}

void ProgressBar::Clear() {
  if (shownPermille < 0) return;
  shownPermille = -1;
  Draw("");
}

void ProgressBar::Draw(const std::string& line) {
  // Return to the line's start, wipe to its end, and stay on it.
  fmt::print(out, "\r\x1b[K{}", line);
  std::fflush(out);
}

}  // namespace host
