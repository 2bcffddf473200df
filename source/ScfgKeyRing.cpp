#include "ScfgKeyRing.h"

#include <algorithm>

namespace {

// The chip's layout: the ring ends with the sector.
constexpr std::size_t kRingOffset = 232;
constexpr std::size_t kEntryCount = 18;
constexpr std::size_t kEntrySize = 44;
constexpr std::size_t kMinEntries = 1;

bool IsUnused(const std::uint8_t* entry) {
  return std::all_of(entry, entry + kEntrySize, [](std::uint8_t byte) { return byte == 0xFF; });
}

}  // namespace

void ReduceScfgKeyRing(std::vector<std::uint8_t>& scfg) {
  if (scfg.size() < kRingOffset + kEntryCount * kEntrySize) return;
  std::size_t used = 0;
  while (used < kEntryCount && !IsUnused(&scfg[kRingOffset + used * kEntrySize])) ++used;
  scfg.resize(scfg.size() - (kEntryCount - std::max(used, kMinEntries)) * kEntrySize);
}
