#pragma once

#include <string>
#include <vector>

#include "host/plan/ImagePlan.h"
#include "host/probe/ChipPicture.h"

namespace host {

// What a load did to one MAIN sector.
enum class SectorState : char {
  Programmed = '#',
  Erased = '.',    // erased or blank, and not in the images
  Retained = 'r',  // left as it was, by the erase or because nothing touched it; not in the images
  Skipped = 's',   // in the images, but not programmed
};

// One state a sector of MAIN flash, from the chip before and after a load of `plan`.
std::vector<SectorState> ClassifySectors(const LoadPlan& plan, const MemoryMap& map,
                                         const ChipPicture& before, const ChipPicture& after);

// The sectors as characters, 64 a line, each line led by its address and followed by a legend. Lines that
// repeat the one before are drawn as "...".
std::string DrawFlashMap(const std::vector<SectorState>& sectors, std::uint32_t sectorSize);

[[nodiscard]] std::size_t CountSectors(const std::vector<SectorState>& sectors, SectorState state);

}  // namespace host
