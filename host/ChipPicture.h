#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "ImagePlan.h"

namespace host {

// How often a MAIN sector was erased and programmed since the probe was opened.
struct SectorWear {
  std::uint32_t erases = 0;
  std::uint32_t programs = 0;
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

  // What the chip holds at `address` and the following bytes, cut at the end of the region; empty outside.
  [[nodiscard]] std::span<const std::uint8_t> At(std::uint32_t address, std::size_t length, Region region,
                                                 const MemoryMap& map) const;
};

}  // namespace host
