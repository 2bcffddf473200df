#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "host/check/CheckBench.h"
#include "host/check/ExpectedChip.h"
#include "host/check/Poison.h"

namespace host {

namespace {

constexpr std::uint8_t kPoisons[] = {0x5A, 0xA5};

// What one call has given to the host.
struct Given {
  std::string call;
  std::vector<std::uint8_t> bytes;
  bool operator==(const Given&) const = default;
};

class Recorder final : public HostCallObserver {
 public:
  explicit Recorder(std::uint8_t poisonByte) : byte(poisonByte) {}

  void Begins(const PluginCall&, std::uint64_t) override { Poison(byte); }
  void Saw(const HostCall& call, std::uint64_t) override {
    Given one{std::string(call.function), {}};
    if (call.subject) one.call += fmt::format(" {}", *call.subject);
    if (call.text) one.call += fmt::format(" {}", *call.text);
    if (call.function == "WriteReg")
      one.call += fmt::format(" 0x{:x} 0x{:x}", call.address.value(), call.value.value());
    if (call.function == "WriteMemory") one.bytes.assign(call.data.begin(), call.data.end());
    given.push_back(std::move(one));
  }

  std::vector<Given> given;

 private:
  std::uint8_t byte;
};

// A load with what it brings along, on a chip that wants all that a load can do.
std::vector<Given> Load(const CheckPart& part, std::uint8_t poison, CheckReport& report) {
  CheckBench bench(part, report);
  CheckImage image(part.device.chip, 300, CheckImage::Extent::Small);
  if (bench.Set("DebugPassword=open sesame!")) image.RequirePassword();
  (void)bench.Set("CcfgSkipProgrammingUserRecord=0");
  const LoadPlan plan = bench.Plan(image.All());
  bench.PutChip(ChipBeforeLoad(bench.Chip(), plan, part.device.chip, bench.settings));
  Recorder recorder(poison);
  CheckedDevice device(bench);
  device.services.AddObserver(recorder);
  PoisonAfterCalls(device.services, poison);
  if (const auto failure = device.Load(plan)) report.Find(fmt::format("the load fails: \"{}\"", *failure));
  (void)device.Run("EnsureAuthentication", {1LL});
  (void)device.Perform("BlankCheck");
  return recorder.given;
}

std::string Difference(const Given& one, const Given& other) {
  if (one.bytes.size() != other.bytes.size() || one.call != other.call)
    return fmt::format("\"{}\" of {} bytes, then \"{}\" of {}", one.call, one.bytes.size(), other.call,
                       other.bytes.size());
  const auto [at, its] = std::ranges::mismatch(one.bytes, other.bytes);
  return fmt::format("{}: byte {} of {} is 0x{:02x}, then 0x{:02x}", one.call, at - one.bytes.begin(),
                     one.bytes.size(), *at, *its);
}

}  // namespace

// What is the same whatever stack and heap hold has been set by somebody.
void CheckWords(const CheckPart& part, CheckReport& report) {
  report.At(fmt::format("{}, the same load twice", part.device.name));
  const std::vector<Given> first = Load(part, kPoisons[0], report);
  const std::vector<Given> second = Load(part, kPoisons[1], report);
  for (const Given& one : first)
    for (std::size_t word = 0; word < one.bytes.size(); word += 4) report.Count();
  for (std::size_t call = 0; call < std::max(first.size(), second.size()); ++call) {
    const Given one = call < first.size() ? first[call] : Given{};
    const Given other = call < second.size() ? second[call] : Given{};
    if (one == other) continue;
    return report.Find(fmt::format("host call {} depends on memory that nobody has set: {}", call + 1,
                                   Difference(one, other)));
  }
}

}  // namespace host
