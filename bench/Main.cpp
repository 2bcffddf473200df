#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <string>
#include <vector>

#include "LoadRate.h"
#include "NullHost.h"
#include "PluginCost.h"

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

// What one more sector in a block costs. Round trips: the data, a look at the flags, the acknowledgement.
// Host calls: these three; and around the data, the acknowledgement's header and its (empty) rest each the
// choice of the core, the question whether it is connected, and the way back.
std::vector<Row> AccessesPerSector(const host::PluginLibrary& library) {
  const LoadCost shorter = MeasureLoad(library, Image(16 * kSectorSize), {16});
  const LoadCost longer = MeasureLoad(library, Image(32 * kSectorSize), {32});
  const auto perSector = [](std::uint64_t of32, std::uint64_t of16) {
    return static_cast<double>(of32 - of16) / 16;
  };
  const double roundTrips = perSector(longer.roundTrips, shorter.roundTrips);
  const double calls = perSector(longer.hostCalls, shorter.hostCalls);
  return {{"probe round trips a sector", "at most 3", fmt::format("{}", roundTrips), roundTrips <= 3},
          {"host calls a sector", "at most 12", fmt::format("{}", calls), calls <= 12}};
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
std::vector<Row> RatesOn(const host::PluginLibrary& library, const std::string& probe, double goal) {
  const double wireRate = WireBytesPerSecond(probe);
  const double wholeSeconds = ModelledSeconds(library, probe, Image(kMiB));
  const double moreSeconds = wholeSeconds - ModelledSeconds(library, probe, Image(kMiB / 2));
  const auto moreBytes = static_cast<double>(kMiB) / 2;
  return {{"modelled rate of image data on probe " + probe,
           goal > 0 ? fmt::format("at least {:.0f} %", 100 * goal) : "",
           Share(moreBytes, moreSeconds, wireRate), moreBytes / moreSeconds >= goal * wireRate},
          {"the same, whole 1 MiB load", "", Share(kMiB, wholeSeconds, wireRate), true}};
}

}  // namespace

int main() try {
  const host::PluginLibrary library(TOVIK_PLUGIN_PATH);
  std::vector<Row> rows{CostAgainstCrc(library), PeakMemory(library)};
  for (Row& row : AccessesPerSector(library)) rows.push_back(std::move(row));
  rows.push_back(LinearInBytes(library));
  rows.push_back(LinearInBlocks(library));
  for (Row& row : RatesOn(library, "hs", 0.8)) rows.push_back(std::move(row));
  for (Row& row : RatesOn(library, "fs", 0)) rows.push_back(std::move(row));

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
