#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <set>

#include "host/check/CheckBench.h"
#include "host/check/ExpectedChip.h"
#include "host/plugin/SaciWatch.h"

namespace host {

namespace {

// Of the answers to a command: what the chip refuses, and what is no answer to it.
constexpr const char* s_wrongAnswers[] = {"result=132", "result=135", "lost",     "hang",
                                          "wrong-id",   "wrong-seq",  "count=33", "late=600"};

// Places of the load that do not take what is written, and a reset that goes another way.
std::vector<std::string> OtherFaults(const LoadPlan& plan, const DeviceDescription& device) {
  std::vector<std::string> faults{"reset-misses-saci"};
  std::set<Region> regions;
  for (const ImageBlock& block : plan.blocks) {
    // Nothing compares OTP.
    if (block.region == Region::Otp || !regions.insert(block.region).second) continue;
    const std::uint32_t offset = block.region == Region::Ccfg ? device.chip.bootCrc.offset : 0;
    faults.push_back(
        fmt::format("{}:0x{:x}", block.region == Region::Ram ? "ram" : "cell", block.address + offset));
  }
  return faults;
}

class FaultyLoads {
 public:
  FaultyLoads(const CheckPart& checkPart, CheckReport& checkReport)
      : part(checkPart), report(checkReport), bench(checkPart, checkReport) {
    plan = bench.Plan(CheckImage(part.device.chip, 600, CheckImage::Extent::Small).All());
    start = ChipBeforeLoad(bench.Chip(), plan, part.device.chip, bench.settings);
  }

  // Of each command's answers, the first and the last.
  std::vector<std::string> Faults() {
    std::vector<std::string> faults = OtherFaults(plan, part.device);
    for (const auto& [command, answers] : AnswersOfALoad())
      for (const unsigned nth : std::set<unsigned>{1, answers})
        for (const char* answer : s_wrongAnswers)
          faults.push_back(fmt::format("saci:{}:nth={}:{}", command, nth, answer));
    return faults;
  }

  // Told, or as if it had not been; and then a good load on the same object.
  void Try(const std::string& fault) {
    report.At(fmt::format("{}, the chip's fault {}", part.device.name, fault));
    report.Count();
    bench.PutChip(start);
    const simulator::ChipState expected = ChipAfterLoad(start, plan, part.device, bench.settings);
    CheckedDevice device(bench);
    bench.AskForFault(fault);
    const bool isTold = device.Load(plan).has_value() || !device.errors.empty();
    const std::string difference = Difference(bench.Chip(), expected);
    if (!isTold && !difference.empty())
      report.Find(
          fmt::format("the load says that it succeeds, and the chip is not as it should be: {}", difference));
    bench.probe.Chip().AskedFaults() = {};
    device.LoadWell(plan);
  }

 private:
  // By the command's number.
  std::map<std::uint8_t, unsigned> AnswersOfALoad() {
    report.At(fmt::format("{}, a load without faults", part.device.name));
    bench.PutChip(start);
    SaciWatch watch;
    CheckedDevice device(bench);
    device.services.AddObserver(watch);
    device.LoadWell(plan);
    std::map<std::uint8_t, unsigned> answers;
    for (const SaciExchange& exchange : watch.Exchanges())
      answers[exchange.command] += std::max(1U, exchange.sectorsAcknowledged);
    return answers;
  }

  const CheckPart& part;
  CheckReport& report;
  CheckBench bench;
  LoadPlan plan;
  simulator::ChipState start;
};

}  // namespace

void CheckChipFaults(const CheckPart& part, CheckReport& report) {
  FaultyLoads loads(part, report);
  for (const std::string& fault : loads.Faults())
    if (!report.IsFull()) loads.Try(fault);
}

}  // namespace host
