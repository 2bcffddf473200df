#pragma once

#include <cstdint>
#include <vector>

// The chip's chip-erase-retain field, as a chip erase answers with it: 2, 3 or 5 words (of 5, only the first
// two count). A bit keeps one of the sectors 0 to 31, or a group of eight further up.
// `groupShift` is the bit of word 1 that stands for sectors 32 to 39.

// Throws std::runtime_error naming the count unless it is one of the three.
void RequireRetainFieldSize(const std::vector<std::uint32_t>& words);

// The retained sectors as a mask of `sectorCount` entries; bits of sectors that do not exist are ignored.
[[nodiscard]] std::vector<bool> DecodeRetainField(const std::vector<std::uint32_t>& words,
                                                  unsigned groupShift, std::uint32_t sectorCount);
