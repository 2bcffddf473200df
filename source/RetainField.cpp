#include "RetainField.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace {

constexpr std::uint32_t kSectorsPerGroup = 8;

// Bits [firstBit, firstBit + groups) of `word` keep `groups` groups of `groupSize` sectors from
// `firstSector`.
void ApplyWord(std::uint32_t word, unsigned firstBit, std::uint32_t groups, std::uint32_t groupSize,
               std::uint32_t firstSector, std::vector<bool>& retained) {
  for (std::uint32_t i = 0; i < groups; ++i) {
    const std::size_t begin = std::min<std::size_t>(firstSector + i * groupSize, retained.size());
    const std::size_t end = std::min<std::size_t>(begin + groupSize, retained.size());
    for (std::size_t sector = begin; sector < end; ++sector)
      retained[sector] = (word >> (firstBit + i) & 1) != 0;
  }
}

}  // namespace

void RequireRetainFieldSize(const std::vector<std::uint32_t>& words) {
  if (words.size() == 2 || words.size() == 3 || words.size() == 5) return;
  throw std::runtime_error(
      "Unexpected size of 'ccfg.flashProt.chipEraseRetain' returned from device. Expected 2 or 3 "
      "32-bit words (32-bit), but received " +
      std::to_string(words.size()) + " 32-bit words.");
}

std::vector<bool> DecodeRetainField(const std::vector<std::uint32_t>& words, unsigned groupShift,
                                    std::uint32_t sectorCount) {
  RequireRetainFieldSize(words);
  std::vector<bool> retained(sectorCount, false);
  ApplyWord(words[0], 0, 32, 1, 0, retained);
  ApplyWord(words[1], groupShift, 28, kSectorsPerGroup, 32, retained);
  if (words.size() == 3) ApplyWord(words[2], 0, 32, kSectorsPerGroup, 256, retained);
  return retained;
}
