#include "host/load/FlashMap.h"

#include <fmt/format.h>

#include <algorithm>

namespace host {

namespace {

constexpr std::size_t kSectorsPerLine = 64;

}  // namespace

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
  std::string legend;
  for (const SectorState state : kSectorStates)
    if (const std::size_t count = CountSectors(sectors, state); count != 0)
      legend += fmt::format("{}{} {} {}", legend.empty() ? "  " : "   ", static_cast<char>(state), count,
                            SectorStateName(state));
  return picture + legend + "\n";
}

const char* SectorStateName(SectorState state) {
  switch (state) {
    case SectorState::Programmed: return "programmed";
    case SectorState::Unverified: return "not verified";
    case SectorState::Verified: return "verified";
    case SectorState::Erased: return "erased";
    case SectorState::Retained: return "retained";
    case SectorState::Skipped: return "skipped";
    case SectorState::Failed: return "failed";
    case SectorState::Unknown: return "unknown";
    case SectorState::NotReached: return "not reached";
  }
  return "?";
}

std::size_t CountSectors(const std::vector<SectorState>& sectors, SectorState state) {
  return static_cast<std::size_t>(std::count(sectors.begin(), sectors.end(), state));
}

}  // namespace host
