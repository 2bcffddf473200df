#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <numeric>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "LoadRate.h"
#include "NullHost.h"
#include "PluginCost.h"
#include "ProbeCost.h"

// Measures the plug-in against its goals and prints one table. What depends on the machine's noise is the
// best of several runs, and the ratios compare figures of the same run.

namespace {

using namespace bench;

constexpr std::size_t kMiB = 1 << 20;
constexpr int kRuns = 15;

struct Row {
  std::string what;
  std::string goal;
  std::string measured;
  bool met = true;
};

std::vector<std::uint8_t> Image(std::size_t size) {
  std::vector<std::uint8_t> image(size);
  std::uint32_t state = 1;
  for (std::uint8_t& byte : image) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<std::uint8_t>(state >> 24);
  }
  return image;
}

double BestOf(int runs, const std::function<double()>& measure) {
  double best = measure();
  for (int run = 1; run < runs; ++run) best = std::min(best, measure());
  return best;
}

Row CostAgainstCrc(const host::PluginLibrary& library) {
  const auto image = Image(kMiB);
  const auto blocks = LongBlocks(image.size() / kSectorSize);
  const double load = BestOf(kRuns, [&] { return MeasureLoad(library, image, blocks).cpuNs; });
  const double crc = BestOf(kRuns, [&] { return MeasureCrcNs(image); });
  return {"processor time, 1 MiB load / its CalcCRC32", "at most 1.25",
          fmt::format("{:.2f} ({:.2f} ms / {:.2f} ms)", load / crc, load / 1e6, crc / 1e6),
          load / crc <= 1.25};
}

Row PeakMemory(const host::PluginLibrary& library) {
  const auto image = Image(kMiB);
  const auto blocks = LongBlocks(image.size() / kSectorSize);
  const auto largest = *std::max_element(blocks.begin(), blocks.end()) * kSectorSize;
  const auto peak = MeasureLoad(library, image, blocks).peakBytes;
  const double ratio = static_cast<double>(peak) / static_cast<double>(largest);
  return {"peak extra memory / largest block", "at most 2.5",
          fmt::format("{:.2f} ({} KiB / {} KiB)", ratio, peak / 1024, largest / 1024), ratio <= 2.5};
}

// What one more sector in a block costs: the data, a look at the flags, the acknowledgement; and around the
// data, the acknowledgement's header and its (empty) rest each the choice of the core, the question whether
// it is connected, and the way back.
Row HostCallsPerSector(const host::PluginLibrary& library) {
  const LoadCost shorter = MeasureLoad(library, Image(16 * kSectorSize), {16});
  const LoadCost longer = MeasureLoad(library, Image(32 * kSectorSize), {32});
  const double calls = static_cast<double>(longer.hostCalls - shorter.hostCalls) / 16;
  return {"host calls a sector", "at most 12", fmt::format("{}", calls), calls <= 12};
}

// A series of costs per unit, of growing loads: linear growth shows as a last one that is no worse than the
// best. The first holds what a load costs whatever its size.
Row LinearRow(std::string what, const std::vector<double>& costs) {
  std::string measured;
  for (const double cost : costs) measured += fmt::format("{:.2f}  ", cost);
  return {std::move(what), "last <= 1.25 best", measured,
          costs.back() <= 1.25 * *std::min_element(costs.begin(), costs.end())};
}

Row LinearInBytes(const host::PluginLibrary& library) {
  std::vector<double> nsPerByte;
  for (const std::size_t size : {kMiB / 16, kMiB / 4, kMiB, 4 * kMiB, 16 * kMiB}) {
    const auto image = Image(size);
    const auto blocks = LongBlocks(size / kSectorSize);
    nsPerByte.push_back(BestOf(5, [&] { return MeasureLoad(library, image, blocks).cpuNs; }) /
                        static_cast<double>(size));
  }
  return LinearRow("ns a byte: 64 and 256 KiB, 1, 4 and 16 MiB", nsPerByte);
}

Row LinearInBlocks(const host::PluginLibrary& library) {
  std::vector<double> usPerBlock;
  for (const std::size_t count : {std::size_t{1}, std::size_t{16}, std::size_t{256}, std::size_t{4096}}) {
    const auto image = Image(count * kSectorSize);
    const std::vector<std::size_t> blocks(count, 1);
    usPerBlock.push_back(BestOf(5, [&] { return MeasureLoad(library, image, blocks).cpuNs; }) /
                         static_cast<double>(count) / 1e3);
  }
  return LinearRow("us a block: 1, 16, 256 and 4096 blocks", usPerBlock);
}

std::string Share(double bytes, double seconds, double wireRate) {
  return fmt::format("{:.1f} % ({:.0f} kB/s of {:.0f} kB/s)", 100 * bytes / seconds / wireRate,
                     bytes / seconds / 1e3, wireRate / 1e3);
}

// The rate at which image bytes reach the chip: what half a MiB more takes. The whole load has in addition
// the reset and the erase, whose duration is the chip's and the 100 ms at which the plug-in polls.
std::vector<Row> RatesOn(const host::PluginLibrary& library, const std::string& probe, double goal,
                         double goalOfWhole, std::optional<double> goalOfTrips) {
  const double wireRate = WireBytesPerSecond(probe);
  const ModelledLoad whole = MeasureModelledLoad(library, probe, Image(kMiB));
  const ModelledLoad half = MeasureModelledLoad(library, probe, Image(kMiB / 2));
  const double moreSeconds = whole.seconds - half.seconds;
  const auto moreBytes = static_cast<double>(kMiB) / 2;
  const double roundTrips =
      static_cast<double>(whole.roundTrips - half.roundTrips) / (moreBytes / kSectorSize);
  const auto atLeast = [](double share) {
    return share > 0 ? fmt::format("at least {:.0f} %", 100 * share) : "";
  };
  return {{"modelled rate of image data on probe " + probe, atLeast(goal),
           Share(moreBytes, moreSeconds, wireRate), moreBytes / moreSeconds >= goal * wireRate},
          {"the same, whole 1 MiB load", atLeast(goalOfWhole), Share(kMiB, whole.seconds, wireRate),
           kMiB / whole.seconds >= goalOfWhole * wireRate},
          {"the same, round trips waited for, a sector",
           goalOfTrips ? fmt::format("at most {}", *goalOfTrips) : "", fmt::format("{:.2f}", roundTrips),
           roundTrips <= goalOfTrips.value_or(roundTrips)}};
}

// The simulated probe and chip take most of a load's processor time; on a board they are not there.
Row ProbeCode(const host::PluginLibrary& library) {
  const ModelledLoad load = MeasureModelledLoad(library, "hs", Image(kMiB));
  const double nsPerPacket = ProbeNsPerPacket();
  const double share = nsPerPacket * static_cast<double>(load.packets) / load.cpuNs;
  return {"processor time of the probe code, hs", "",
          fmt::format("{:.2f} us a packet, {:.0f} % of a whole load's {:.1f} ms", nsPerPacket / 1e3,
                      100 * share, load.cpuNs / 1e6)};
}

Row RealTime(const host::PluginLibrary& library) {
  const double seconds =
      BestOf(3, [&] { return MeasureModelledLoad(library, "hs", Image(kMiB)).realSeconds; });
  return {"real seconds of a 1 MiB load into sim", "at most 0.25", fmt::format("{:.3f}", seconds),
          seconds <= 0.25};
}

// Each board with a thread, a session's parts and a chip of its own: nothing is shared but the library.
Row EightBoards(const host::PluginLibrary& library) {
  const auto image = Image(kMiB);
  const double one = BestOf(3, [&] { return MeasureModelledLoad(library, "hs", image).cpuNs; });
  const double eight = BestOf(3, [&] {
    std::vector<double> cpuNs(8);
    std::vector<std::jthread> boards;
    boards.reserve(cpuNs.size());
    for (double& ns : cpuNs)
      boards.emplace_back([&] { ns = MeasureModelledLoad(library, "hs", image).cpuNs; });
    boards.clear();
    return std::accumulate(cpuNs.begin(), cpuNs.end(), 0.0);
  });
  const double ratio = eight / one / 8;
  return {"processor time, 8 boards at once / 8 x one", "at most 1.5", fmt::format("{:.2f}", ratio),
          ratio <= 1.5};
}

}  // namespace

int main() try {
  const host::PluginLibrary library(TOVIK_PLUGIN_PATH);
  std::vector<Row> rows{CostAgainstCrc(library), PeakMemory(library)};
  rows.push_back(HostCallsPerSector(library));
  rows.push_back(LinearInBytes(library));
  rows.push_back(LinearInBlocks(library));
  for (Row& row : RatesOn(library, "hs", 0.92, 0.8, 1)) rows.push_back(std::move(row));
  for (Row& row : RatesOn(library, "fs", 0.5, 0, 1)) rows.push_back(std::move(row));
  // One packet at a time: each is waited for.
  for (Row& row : RatesOn(library, "hid", 0.07, 0, std::nullopt)) rows.push_back(std::move(row));
  rows.push_back(ProbeCode(library));
  rows.push_back(RealTime(library));
  rows.push_back(EightBoards(library));

  bool allMet = true;
  fmt::print("{:<46}{:<20}{}\n", "", "goal", "measured");
  for (const Row& row : rows) {
    fmt::print("{:<46}{:<20}{}{}\n", row.what, row.goal, row.measured, row.met ? "" : "  MISSED");
    allMet = allMet && row.met;
  }
  return allMet ? 0 : 1;
} catch (const std::exception& error) {
  fmt::print(stderr, "tovik-bench: {}\n", error.what());
  return 2;
}
