#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "host/device/MemoryMap.h"

namespace host {

// A chip's memories, as they can be looked at where the chip is simulated. A region that the chip lacks is
// empty.
struct ChipPicture {
  std::vector<std::uint8_t> main;
  std::vector<std::uint8_t> ccfg;
  std::vector<std::uint8_t> scfg;
  std::vector<std::uint8_t> otp;
  std::vector<std::uint8_t> ram;

  // What the chip holds at `address` and the following bytes, cut at the end of the region; empty outside.
  [[nodiscard]] std::span<const std::uint8_t> At(std::uint32_t address, std::size_t length, Region region,
                                                 const MemoryMap& map) const;
};

}  // namespace host
