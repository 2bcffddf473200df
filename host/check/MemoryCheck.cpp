#include <dlfcn.h>
#include <fmt/format.h>
#include <malloc.h>

#include <filesystem>
#include <functional>
#include <iterator>

#include "host/check/CheckBench.h"
#include "host/check/ExpectedChip.h"
#include "host/check/Poison.h"

namespace host {

namespace {

constexpr int kToSettle = 4;  // loads, after which everything that is made once has been made
constexpr int kLoads = 20;
constexpr std::size_t kNoise = 16;  // bytes a load, that the allocator wastes; its smallest block has 32
constexpr std::uint64_t kFailingCall = 200;  // in the middle of a load

// What the process has allocated, and what else a plug-in could forget to give back.
struct Belongings {
  std::size_t bytes;
  std::ptrdiff_t files;
  std::ptrdiff_t threads;
};

std::ptrdiff_t EntriesOf(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), {});
}

std::size_t AllocatedBytes() {
  // A sanitizer puts its own allocator in place of the library's, and then counts itself.
  using Counted = std::size_t (*)();
  const static auto s_sanitizers =
      reinterpret_cast<Counted>(dlsym(RTLD_DEFAULT, "__sanitizer_get_current_allocated_bytes"));
  if (s_sanitizers != nullptr) return s_sanitizers();
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

Belongings Count() {
  Poison(0);  // fills the allocator's lists of freed blocks, which it counts among what is in use
  return {AllocatedBytes(), EntriesOf("/proc/self/fd"), EntriesOf("/proc/self/task")};
}

void FindGrowth(const Belongings& before, const Belongings& after, CheckReport& report) {
  if (after.bytes > before.bytes + kLoads * kNoise)
    report.Find(fmt::format("memory grows by {} bytes a load", (after.bytes - before.bytes) / kLoads));
  if (after.files > before.files)
    report.Find(fmt::format("{} files stay open after {} loads", after.files - before.files, kLoads));
  if (after.threads > before.threads)
    report.Find(fmt::format("{} threads are left after {} loads", after.threads - before.threads, kLoads));
}

// Whatever one of these loads leaves behind is there twenty times in the end.
void LoadOften(CheckReport& report, const std::function<void(int load)>& load) {
  const auto repeat = [&](int times) {
    for (int i = 0; i < times; ++i) {
      load(i);
      report.Count();
    }
  };
  (void)Count();  // allocates something itself
  repeat(kToSettle);
  const Belongings before = Count();
  repeat(kLoads);
  FindGrowth(before, Count(), report);
}

}  // namespace

void CheckMemory(const CheckPart& part, CheckReport& report) {
  CheckBench bench(part, report);
  const LoadPlan plan = bench.Plan(CheckImage(part.device.chip, 400, CheckImage::Extent::Small).All());
  const simulator::ChipState start = ChipBeforeLoad(bench.Chip(), plan, part.device.chip, bench.settings);
  report.At(fmt::format("{}, one device object for all loads", part.device.name));
  CheckedDevice device(bench);
  LoadOften(report, [&](int) {
    bench.PutChip(start);
    device.services.ConnectDebugPort();
    device.LoadWell(plan);
    device.infos.clear();
  });
  report.At(
      fmt::format("{}, a device object for each load, of which every second one fails", part.device.name));
  LoadOften(report, [&](int load) {
    bench.PutChip(start);
    CheckedDevice one(bench);
    if (load % 2 == 0) one.services.Fail({.call = kFailingCall, .text = kRefusal});
    (void)one.Load(plan);
  });
}

}  // namespace host
