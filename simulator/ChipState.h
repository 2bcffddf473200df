#pragma once

#include <cstdint>
#include <vector>

#include "ChipDescription.h"

namespace simulator {

inline constexpr std::uint8_t kErased = 0xFF;  // each byte of flash and OTP

// What the security module keeps. Versions are packed major in bits 23-16, minor in 15-8, patch in 7-0.
struct HsmState {
  std::uint32_t version = 0x010000;  // as delivered: 1.0.0
  std::uint32_t updateStatus = 0;    // outcome of the last update, 0 when there was none
  std::uint32_t updates = 0;         // updates that were installed
  bool boots = true;

  bool operator==(const HsmState&) const = default;
};

// What a chip is apart from what its ROM is doing: the contents of its memories. RAM is kept with it so that
// what a load wrote there can be looked at afterwards.
struct ChipState {
  std::vector<std::uint8_t> main;
  std::vector<std::uint8_t> ccfg;
  std::vector<std::uint8_t> scfg;
  std::vector<std::uint8_t> otp;
  std::vector<std::uint8_t> ram;
  HsmState hsm;
  std::uint8_t lifeCycle = 5;

  bool operator==(const ChipState&) const = default;
};

// A chip as delivered: flash and OTP erased (all ones), RAM zero.
ChipState BlankState(const ChipDescription& description);

}  // namespace simulator
