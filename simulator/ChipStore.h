#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "ChipDescription.h"
#include "ChipState.h"

namespace simulator {

// A chip's contents as the bytes of a file. Layout, all little-endian: the 8 bytes "TOVCHIP\n"; word: format
// version 1; name length word and the device's name; words DEVICEID and PARTID; word: life cycle; words: HSM
// version, update status, updates, boots (0 or 1); then MAIN, CCFG, SCFG, OTP, RAM, each a length word and
// its bytes; last the 32 bytes of the SHA-256 of all before.
std::vector<std::uint8_t> PackChip(const ChipDescription& description, const ChipState& state);

// Throws std::runtime_error saying what is wrong with the bytes: not a chip file, another format version,
// damaged (truncated, grown or changed anywhere), or a chip of another device.
ChipState UnpackChip(const ChipDescription& description, std::span<const std::uint8_t> file);

// The name of the device whose chip it is. Fails as UnpackChip does.
std::string DeviceNameOf(std::span<const std::uint8_t> file);

}  // namespace simulator
