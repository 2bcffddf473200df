#include "host/plan/MainBlocks.h"

#include <algorithm>

#include "host/plan/EraseChoice.h"

namespace host {

namespace {

// A transfer of 32 sectors is 64 KiB: longer ones save no time that could be measured on the faster probe.
constexpr std::size_t kLargestTransfer = 32;

}  // namespace

PluginCuts PluginCutsUnder(const PropertyStore& settings) {
  const bool cuts = settings.IsOn("FlashPageToggle") || settings.IsOn("FlashPagesFilledWith") ||
                    ChosenErase(settings).keepsMarkedSectors;
  return cuts ? PluginCuts::Yes : PluginCuts::No;
}

// A transfer's sectors are acknowledged with 8-bit numbers that count up from the transfer's own command
// number f, and the plug-in follows them across one wrap only: a transfer of n sectors succeeds if and only
// if f + n - 1 is at most 256. A load's commands are numbered from 0, a no-operation first, then the chip
// erase if there is one; each MAIN block takes two numbers, one to program and one to verify. So block
// number k begins at 2k + 1 or 2k + 2, modulo 256, and one or two sectors always pass. Where the plug-in may
// cut a block into an unknown number of transfers, its number is unknown too, and nothing more is safe.
std::size_t MaxSectorsOfBlock(std::size_t index, PluginCuts cuts) {
  constexpr std::size_t kAlwaysSafe = 2;
  if (cuts == PluginCuts::Yes) return kAlwaysSafe;
  const std::size_t sinceWrap = index % 128;
  return std::max(kAlwaysSafe, std::min(kLargestTransfer, 255 - 2 * sinceWrap));
}

void MainBlocks::Add(std::uint32_t address, std::span<const std::uint8_t> data) {
  while (!data.empty()) {
    const std::uint32_t sector = address / sectorSize;
    if (!Continues(sector)) {
      blocks.push_back({Region::Main, address, {}, {}});
      sectorsInBlock = 1;
    } else if (sector != lastSector) {
      ++sectorsInBlock;
    }
    lastSector = sector;
    const std::size_t count = std::min<std::size_t>(data.size(), sectorSize - address % sectorSize);
    blocks.back().Append(address, data.first(count));
    address += static_cast<std::uint32_t>(count);
    data = data.subspan(count);
  }
}

std::vector<ImageBlock> MainBlocks::Take() {
  // When the plug-in cuts away the sector before, it drops a last sector that holds a single byte.
  for (ImageBlock& block : blocks)
    if (cuts == PluginCuts::Yes && block.data.size() > 1 && block.End() % sectorSize == 1)
      block.FillUpTo(block.End() + 1);
  return std::move(blocks);
}

bool MainBlocks::Continues(std::uint32_t sector) const {
  if (blocks.empty()) return false;
  if (sector == lastSector) return true;
  return sector == lastSector + 1 && sectorsInBlock < MaxSectorsOfBlock(blocks.size() - 1, cuts);
}

}  // namespace host
