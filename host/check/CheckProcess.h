#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/check/CheckReport.h"

namespace host {

// A part of a check, for a process of its own.
using CheckWork = std::function<void(CheckReport&)>;

// A check at work in a process of its own, so that a plug-in which crashes, hangs, ends its process or eats
// up the memory is told of like any other. What it leaves behind is ended with it.
class CheckProcess {
 public:
  // Throws std::runtime_error when the system gives no process.
  explicit CheckProcess(const CheckWork& work);
  ~CheckProcess();
  CheckProcess(const CheckProcess&) = delete;
  CheckProcess& operator=(const CheckProcess&) = delete;

  // Whether it is over; ends it when it has given no sign of life for so long.
  bool HasEnded(std::chrono::milliseconds patience);

  // Of one that has ended.
  [[nodiscard]] std::vector<CheckFinding> Findings() const;
  [[nodiscard]] std::uint64_t Count() const { return report->count; }

 private:
  using Clock = std::chrono::steady_clock;

  [[noreturn]] void Work(const CheckWork& work) const;
  [[nodiscard]] std::string EndText() const;
  [[nodiscard]] std::string FirstOutputLine() const;

  CheckReport* const report;
  const int output;  // what the process writes to its standard output and error
  pid_t process;
  bool hasEnded = false;
  bool wasSilent = false;
  int status = 0;
  std::uint64_t signsSeen = 0;
  Clock::time_point lastSign = Clock::now();
};

}  // namespace host
