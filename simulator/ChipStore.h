#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "ChipDescription.h"
#include "ChipState.h"

namespace simulator {

// A chip's contents in a file. Layout, all little-endian: the 8 bytes "TOVCHIP\n"; word: format version 1;
// name length word and the device's name; words DEVICEID and PARTID; word: life cycle; words: HSM version,
// update status, updates, boots (0 or 1); then MAIN, CCFG, SCFG, OTP, RAM, each a length word and its bytes;
// last the 32 bytes of the SHA-256 of all before.
std::vector<std::uint8_t> PackChip(const ChipDescription& description, const ChipState& state);

// Throws std::runtime_error saying what is wrong with the bytes: not a chip file, another format version,
// damaged (truncated, grown or changed anywhere), or a chip of another device.
ChipState UnpackChip(const ChipDescription& description, std::span<const std::uint8_t> file);

// As above; failures begin with "Chip file PATH: ". Never changes the file.
ChipState LoadChip(const std::filesystem::path& path, const ChipDescription& description);

// The name of the device whose chip the file holds. Fails as LoadChip does.
std::string DeviceNameInFile(const std::filesystem::path& path);

// Replaces the file in one step: it holds the old chip or the new one, never a part of either, whenever the
// process or the machine stops. Throws std::runtime_error; the old file is then untouched.
void SaveChip(const std::filesystem::path& path, const ChipDescription& description, const ChipState& state);

}  // namespace simulator
