#include "host/load/FlashMap.h"

#include <fmt/format.h>

#include <algorithm>

namespace host {

namespace {

constexpr std::size_t kSectorsPerLine = 64;
constexpr std::uint8_t kErased = 0xFF;

bool IsBlank(std::span<const std::uint8_t> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](std::uint8_t byte) { return byte == kErased; });
}

}  // namespace

std::vector<SectorState> ClassifySectors(const LoadPlan& plan, const MemoryMap& map,
                                         const ChipPicture& before, const ChipPicture& after) {
  const std::size_t count = map.sectorSize == 0 ? 0 : after.main.size() / map.sectorSize;
  std::vector<bool> isInImages(count, false);
  for (const ImageBlock& block : plan.blocks) {
    if (block.region != Region::Main) continue;
    const std::size_t last = (block.address + block.data.size() - 1) / map.sectorSize;
    for (std::size_t sector = block.address / map.sectorSize; sector <= last && sector < count; ++sector)
      isInImages[sector] = true;
  }

  const auto wasErased = [&](std::size_t sector) {
    return after.mainWear.at(sector).erases != before.mainWear.at(sector).erases;
  };
  // What an erase has left out it has retained, blank or not.
  bool anyErased = false;
  for (std::size_t sector = 0; sector < count; ++sector) anyErased = anyErased || wasErased(sector);

  std::vector<SectorState> states(count, SectorState::Retained);
  for (std::size_t sector = 0; sector < count; ++sector) {
    const auto held = std::span(after.main).subspan(sector * map.sectorSize, map.sectorSize);
    if (after.mainWear.at(sector).programs != before.mainWear.at(sector).programs) {
      states[sector] = SectorState::Programmed;
    } else if (isInImages[sector]) {
      states[sector] = SectorState::Skipped;
    } else if (wasErased(sector) || (!anyErased && IsBlank(held))) {
      states[sector] = SectorState::Erased;
    }
  }
  return states;
}

std::string DrawFlashMap(const std::vector<SectorState>& sectors, std::uint32_t sectorSize) {
  std::string picture = fmt::format("Flash map, one character a sector of {} bytes\n", sectorSize);
  std::string previous;
  bool isRepeating = false;
  for (std::size_t first = 0; first < sectors.size(); first += kSectorsPerLine) {
    std::string line;
    for (std::size_t sector = first; sector < std::min(first + kSectorsPerLine, sectors.size()); ++sector)
      line += static_cast<char>(sectors[sector]);
    const bool isLast = first + kSectorsPerLine >= sectors.size();
    if (line == previous && !isLast) {
      if (!isRepeating) picture += "  ...\n";
      isRepeating = true;
      continue;
    }
    isRepeating = false;
    picture += fmt::format("  0x{:08x} {}\n", first * sectorSize, line);
    previous = line;
  }
  return picture + "  # programmed   . erased   r retained   s skipped\n";
}

std::size_t CountSectors(const std::vector<SectorState>& sectors, SectorState state) {
  return static_cast<std::size_t>(std::count(sectors.begin(), sectors.end(), state));
}

}  // namespace host
