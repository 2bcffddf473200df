#include "host/check/CheckProcess.h"

#include <fmt/format.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <new>
#include <stdexcept>

namespace host {

namespace {

constexpr rlim_t kMemory = 1U << 30;  // beyond what the process has to begin with; a load takes a few MiB

// A picture of a chip is no large block, to be mapped, cleared and given back each time.
constexpr int kLargeBlock = 32 << 20;

[[noreturn]] void Refuse(const char* what) {
  throw std::runtime_error(fmt::format("{}: {}", what, std::strerror(errno)));
}

CheckReport* SharedReport() {
  void* const memory =
      mmap(nullptr, sizeof(CheckReport), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) Refuse("memory for a check");
  return new (memory) CheckReport;
}

void LimitMemory() {
  rlim_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  const rlim_t limit = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + kMemory;
  const rlimit memory{limit, limit};
  (void)setrlimit(RLIMIT_AS, &memory);
}

}  // namespace

CheckProcess::CheckProcess(const CheckWork& work)
    : report(SharedReport()), output(memfd_create("output", MFD_CLOEXEC)) {
  std::fflush(nullptr);  // or both would write what is still there
  process = fork();
  if (process == 0) Work(work);
  if (process < 0) Refuse("a process for a check");
}

CheckProcess::~CheckProcess() {
  (void)kill(-process, SIGKILL);
  if (!hasEnded) {
    (void)kill(process, SIGKILL);  // it may not have its group yet
    (void)waitpid(process, nullptr, 0);
  }
  (void)munmap(report, sizeof *report);
  (void)close(output);
}

void CheckProcess::Work(const CheckWork& work) const {
  (void)setpgid(0, 0);
  (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
  for (const int signal : {SIGINT, SIGTERM, SIGPIPE}) (void)std::signal(signal, SIG_DFL);
  const rlimit noCore{0, 0};
  (void)setrlimit(RLIMIT_CORE, &noCore);
  (void)dup2(output, STDOUT_FILENO);
  (void)dup2(output, STDERR_FILENO);
  LimitMemory();
  for (const int threshold : {M_MMAP_THRESHOLD, M_TRIM_THRESHOLD}) (void)mallopt(threshold, kLargeBlock);
  try {
    work(*report);
  } catch (const std::exception& error) {
    report->Find(error.what());
  }
  std::fflush(nullptr);
  report->isDone = true;
  _exit(0);
}

bool CheckProcess::HasEnded(std::chrono::milliseconds patience) {
  if (hasEnded) return true;
  hasEnded = waitpid(process, &status, WNOHANG) == process;
  const Clock::time_point now = Clock::now();
  if (report->signs != signsSeen) {
    signsSeen = report->signs;
    lastSign = now;
  } else if (!hasEnded && now - lastSign > patience) {
    wasSilent = true;
    (void)kill(process, SIGKILL);
    hasEnded = waitpid(process, &status, 0) == process;
  }
  return hasEnded;
}

std::vector<CheckFinding> CheckProcess::Findings() const {
  std::vector<CheckFinding> findings;
  const std::uint64_t kept = std::min<std::uint64_t>(report->found, CheckReport::kKept);
  for (std::uint64_t i = 0; i < kept; ++i)
    findings.push_back({report->entries[i].place.View(), report->entries[i].text.View()});
  if (kept < report->found)
    findings.push_back({report->place.View(), fmt::format("and {} more", report->found - kept)});
  const std::string end = EndText();
  if (!end.empty()) findings.push_back({report->place.View(), end});
  return findings;
}

std::string CheckProcess::EndText() const {
  const std::string line = FirstOutputLine();
  if (report->isDone)
    return line.empty() ? "" : fmt::format("writes to standard output or error: \"{}\"", line);
  std::string text = "hangs";
  if (!wasSilent && WIFSIGNALED(status)) {
    const char* const name = sigabbrev_np(WTERMSIG(status));
    text = fmt::format("crashes with SIG{}", name != nullptr ? name : "RT");
  }
  if (!wasSilent && WIFEXITED(status))
    text = fmt::format("ends the process with exit code {}", WEXITSTATUS(status));
  if (report->step.length != 0) text += fmt::format(" in {}", report->step.View());
  return line.empty() ? text : fmt::format("{}: {}", text, line);
}

std::string CheckProcess::FirstOutputLine() const {
  std::string text(4096, '\0');
  text.resize(static_cast<std::size_t>(std::max<ssize_t>(0, pread(output, text.data(), text.size(), 0))));
  const auto isLetter = [](unsigned char c) { return std::isalpha(c) != 0; };
  const auto letter = std::find_if(text.begin(), text.end(), isLetter);  // past a line of ====
  if (letter == text.end()) return "";
  const auto begin = text.rfind('\n', static_cast<std::size_t>(letter - text.begin())) + 1;
  return text.substr(begin, text.find('\n', begin) - begin);
}

}  // namespace host
