#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "host/device/PropertyStore.h"
#include "host/plan/LoadPlan.h"

namespace host {

// Whether the settings let the plug-in cut a block into pieces, each a transfer of its own: sectors listed
// to be skipped, sectors skipped by their content, or MAIN sectors retained by the erase.
enum class PluginCuts { No, Yes };
PluginCuts PluginCutsUnder(const PropertyStore& settings);

// The most MAIN sectors that block number `index` of a load (0 for its first MAIN block) may hold.
std::size_t MaxSectorsOfBlock(std::size_t index, PluginCuts cuts);

// Makes blocks of runs of touched MAIN sectors. The plug-in programs whole sectors and fills up a block's
// first and last one, so a second block in the same sector would wipe out what the first one wrote there.
class MainBlocks {
 public:
  MainBlocks(std::uint32_t bytesPerSector, PluginCuts pluginCuts)
      : sectorSize(bytesPerSector), cuts(pluginCuts) {}

  // In the order of the addresses.
  void Add(std::uint32_t address, std::span<const std::uint8_t> data);
  std::vector<ImageBlock> Take();

 private:
  [[nodiscard]] bool Continues(std::uint32_t sector) const;

  std::uint32_t sectorSize;
  PluginCuts cuts;
  std::vector<ImageBlock> blocks;
  std::uint32_t lastSector = 0;
  std::size_t sectorsInBlock = 0;
};

}  // namespace host
