#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "BootRom.h"
#include "ChipDescription.h"

namespace simulator {

// What the ROM reads in the CCFG. `ccfg` is the whole sector.

// The boot configuration's, the sector's and the debug configuration's CRC words are right. The user record
// does not count: it may be left blank.
bool IsCcfgValid(const ChipDescription& description, std::span<const std::uint8_t> ccfg);
// A CCFG that is not valid leaves debugging open.
DebugAccess DebugAccessOf(const ChipDescription& description, std::span<const std::uint8_t> ccfg);
std::uint64_t DebugPasswordId(const ChipDescription& description, std::span<const std::uint8_t> ccfg);
bool IsDebugPassword(const ChipDescription& description, std::span<const std::uint8_t> ccfg,
                     std::span<const std::uint32_t> words);
// The chip-erase-retain field; none when the CCFG is not valid.
std::vector<std::uint32_t> RetainWords(const ChipDescription& description,
                                       std::span<const std::uint8_t> ccfg);
// Word 0 bit i: sector i. Word 1 bit i + retainGroupShift, i = 0 to 27: sectors 32 + 8i to 39 + 8i.
// Word 2 bit i, in a field of three words: sectors 256 + 8i to 263 + 8i. No words: nothing is retained.
bool IsSectorRetained(const ChipDescription& description, std::span<const std::uint32_t> words,
                      std::uint32_t sector);

// The CRC word that follows `range` is that of the range's bytes.
bool IsCrcWordRight(std::span<const std::uint8_t> sector, ByteRange range);

}  // namespace simulator
