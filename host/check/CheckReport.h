#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace host {

// Something that a plug-in should not have done.
struct CheckFinding {
  std::string place;  // "serin-s20, chip erase"; empty where it is of the library as a whole
  std::string text;
  bool operator==(const CheckFinding&) const = default;
};

// Where a check stands and what it has found, in memory that it shares with the process that waits for it:
// nothing is lost with a plug-in that takes its process along. Every call is a sign of life.
class CheckReport {
 public:
  // What is done from here on.
  void At(std::string_view newPlace);
  // What of it just now; the place of a crash.
  void Step(std::string_view newStep);
  // Something wrong with what is done.
  void Find(std::string_view text);
  // One more of what the check counts.
  void Count() { ++count; }
  // So many findings that more would tell nothing: the check may end.
  [[nodiscard]] bool IsFull() const { return found >= kEnough; }

 private:
  friend class CheckProcess;
  template <std::size_t size>
  struct Text {
    void Set(std::string_view text);
    [[nodiscard]] std::string View() const { return {characters, length}; }

    std::size_t length = 0;
    char characters[size];
  };
  struct Entry {
    Text<160> place;
    Text<400> text;
  };
  static constexpr std::size_t kEnough = 5;
  static constexpr std::size_t kKept = 30;  // more than there are loads; the others only repeat them

  std::atomic<std::uint64_t> signs = 0;
  std::atomic<bool> isDone = false;
  std::uint64_t count = 0;
  std::uint64_t found = 0;
  Text<160> place;
  Text<160> step;
  Entry entries[kKept];
};

}  // namespace host
