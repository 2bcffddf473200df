#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace host {

// What a load did to one MAIN sector, or what it holds.
enum class SectorState : char {
  Programmed = '#',  // and compared by the chip
  Unverified = '+',  // programmed and acknowledged, not compared
  Verified = '=',    // compared only, and equal
  Erased = '.',      // and not in the images
  Retained = 'r',    // left as it was: kept by the erase, or not in the images and nothing was erased
  Skipped = 's',     // in the images, left out by the user's settings
  Failed = 'x',      // refused by the chip, or found different
  Unknown = '?',     // touched, but nothing says what it holds now
  NotReached = '-',  // in the images; the load ended before it
};

// The sectors as characters, 64 a line, each line led by its address and followed by a legend of the states
// that occur, with their counts. Lines that repeat the one before are drawn as "...".
std::string DrawFlashMap(const std::vector<SectorState>& sectors, std::uint32_t sectorSize);

// "not reached"
[[nodiscard]] const char* SectorStateName(SectorState state);
[[nodiscard]] std::size_t CountSectors(const std::vector<SectorState>& sectors, SectorState state);

// All of them, in the order in which they are listed.
inline constexpr SectorState kSectorStates[] = {
    SectorState::Programmed, SectorState::Unverified, SectorState::Verified,
    SectorState::Erased,     SectorState::Retained,   SectorState::Skipped,
    SectorState::Failed,     SectorState::Unknown,    SectorState::NotReached};

}  // namespace host
