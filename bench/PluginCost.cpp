#include "PluginCost.h"

#include <time.h>

#include <algorithm>
#include <stdexcept>

#include "CountedHeap.h"
#include "NullHost.h"
#include "host/plan/ImagePlan.h"
#include "source/Crc32.h"

namespace bench {
namespace {

double ProcessorNs() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

void Require(const char* error) {
  if (error != nullptr) throw std::runtime_error(error);
}

}  // namespace

LoadCost MeasureLoad(const host::PluginLibrary& library, const std::vector<std::uint8_t>& image,
                     const std::vector<std::size_t>& blockSectors) {
  NullHost nullHost;
  IFlashDevice4* device = nullptr;
  Require(library.Entry()("bench", "", "", nullHost.Utility(), &device));
  bool available = false;
  const char* operations = nullptr;
  Require(device->Initialize(available, operations));

  const std::size_t liveBefore = LiveHeapBytes();
  RestartPeak();
  const std::uint64_t callsBefore = nullHost.calls;
  const double start = ProcessorNs();
  Require(device->ResetSettings(ProgramState::LoadStart));
  std::size_t offset = 0;
  for (const std::size_t sectors : blockSectors) {
    const std::size_t length = std::min(sectors * kSectorSize, image.size() - offset);
    Require(device->WriteDataToFlash(image.data() + offset, static_cast<unsigned int>(offset),
                                     static_cast<int>(length), 0));
    offset += length;
  }
  Require(device->ResetSettings(ProgramState::LoadEnd));
  const double end = ProcessorNs();
  if (offset != image.size()) throw std::logic_error("the blocks do not cover the image");

  const LoadCost cost{.cpuNs = end - start,
                      .peakBytes = PeakHeapBytes() - liveBefore,
                      .hostCalls = nullHost.calls - callsBefore};
  device->Delete();
  return cost;
}

std::vector<std::size_t> LongBlocks(std::size_t sectors) {
  std::vector<std::size_t> blocks;
  while (sectors > 0) {
    blocks.push_back(std::min(sectors, host::MaxSectorsOfBlock(blocks.size(), host::PluginCuts::No)));
    sectors -= blocks.back();
  }
  return blocks;
}

double MeasureCrcNs(const std::vector<std::uint8_t>& image) {
  const double start = ProcessorNs();
  // Volatile, so that the work cannot be left out.
  [[maybe_unused]] const volatile std::uint32_t crc =
      CalcCRC32(image.data(), static_cast<unsigned int>(image.size()));
  return ProcessorNs() - start;
}

}  // namespace bench
