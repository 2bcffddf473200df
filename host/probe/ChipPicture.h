#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "host/device/MemoryMap.h"

namespace host {

// How often a MAIN sector was erased and programmed since the probe was opened.
struct SectorWear {
  std::uint32_t erases = 0;
  std::uint32_t programs = 0;
};

// How often the other memories were written since then.
struct WriteCounts {
  std::uint32_t ccfg = 0;
  std::uint32_t scfg = 0;
  std::uint32_t otp = 0;
  std::uint32_t ram = 0;
};

// A chip's memories, as they can be looked at where the chip is simulated. A region that the chip lacks is
// empty.
struct ChipPicture {
  std::vector<std::uint8_t> main;
  std::vector<std::uint8_t> ccfg;
  std::vector<std::uint8_t> scfg;
  std::vector<std::uint8_t> otp;
  std::vector<std::uint8_t> ram;
  std::vector<SectorWear> mainWear;  // one a sector of MAIN flash
  WriteCounts writes;

  // How often anything of the region was written; programming of MAIN flash counts by the sector.
  [[nodiscard]] std::uint64_t WritesOf(Region region) const;
  // What the chip holds at `address` and the following bytes, cut at the end of the region; empty outside.
  [[nodiscard]] std::span<const std::uint8_t> At(std::uint32_t address, std::size_t length, Region region,
                                                 const MemoryMap& map) const;
};

}  // namespace host
