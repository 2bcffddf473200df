#include <fmt/format.h>

#include "host/check/CheckBench.h"
#include "host/check/ExpectedChip.h"

namespace host {

namespace {

struct FirstFailure final : HostCallObserver {
  void Saw(const HostCall& call, std::uint64_t) override {
    if (call.error && function.empty()) function = call.function;
  }

  std::string function;  // empty when none has failed
};

}  // namespace

// A load in which one host call fails, and then on the same object one in which none does.
void CheckFailedCalls(const CheckPart& part, CheckReport& report) {
  CheckBench bench(part, report);
  const LoadPlan plan = bench.Plan(CheckImage(part.device.chip, 500, CheckImage::Extent::Small).All());
  const simulator::ChipState start = ChipBeforeLoad(bench.Chip(), plan, part.device.chip, bench.settings);
  for (const std::string text : {kRefusal, ""})
    for (std::uint64_t nth = 1 + part.first; !report.IsFull(); nth += part.step) {
      const std::string place =
          fmt::format("{}, host call {} fails with \"{}\"", part.device.name, nth, text);
      report.At(place);
      bench.PutChip(start);
      FirstFailure failed;
      CheckedDevice device(bench);
      device.services.AddObserver(failed);
      device.services.Fail({.call = nth, .text = text});
      (void)device.Load(plan);             // that the failure is passed on is one of the rules
      if (failed.function.empty()) break;  // the load ran to its end: every call has had its turn
      report.Count();
      // A property that seems not to be there has no text to pass on, but may be what Initialize wants to
      // know.
      if (failed.function == "GetValueOfProperty") device.ForgetInitialization();
      report.At(fmt::format("{} ({}), then a load on the same object", place, failed.function));
      device.LoadWell(plan);
    }
}

}  // namespace host
