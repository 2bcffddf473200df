#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "DataSection.h"
#include "SectorList.h"

// What holds of every block that is cut by sector options, for tests that make blocks up and for the fuzzer.
// Cuts out of a block at `address` the sectors that `allowed` lacks (where it has entries) and those that
// hold nothing but `fill`. Gives the sentence that is broken, or an empty text.
inline std::string BrokenCuttingRule(std::span<const std::uint8_t> block, std::uint32_t address,
                                     std::uint32_t sectorSize, const SectorMask& allowed,
                                     std::optional<std::uint8_t> fill) {
  std::vector<DataSection> sections{{block.data(), address, static_cast<std::uint32_t>(block.size())}};
  if (!allowed.empty())
    ExcludeSpecificSectorsFromDataSections(&sections, ConvertToAllowedSectorRanges(allowed, true),
                                           sectorSize);
  if (fill) ExcludeSectorsFilledWithValueFromDataSections(&sections, *fill, sectorSize);

  std::vector<bool> kept(block.size());
  std::uint32_t end = 0;
  for (const DataSection& section : sections) {
    if (section.length == 0 || section.address < address || (end != 0 && section.address <= end))
      return "sections ascend, lie apart and are not empty";
    const std::uint32_t offset = section.address - address;
    end = section.address + section.length;
    if (offset + section.length > block.size() || section.data != block.data() + offset)
      return "a section is a view of its own part of the block";
    std::fill_n(kept.begin() + offset, section.length, true);
  }
  const auto isAllowed = [&](std::size_t at) {
    return allowed.empty() || (at / sectorSize < allowed.size() && allowed[at / sectorSize]);
  };
  for (std::size_t i = 0; i < block.size(); ++i) {
    const std::size_t at = address + i;
    const std::size_t sector = at / sectorSize * sectorSize;
    const bool isWhole = sector >= address && sector + sectorSize <= address + block.size();
    const bool isFilled = fill && isWhole &&
                          std::ranges::all_of(block.subspan(sector - address, sectorSize),
                                              [&](std::uint8_t byte) { return byte == *fill; });
    // A range that begins at the block's last byte and runs past it.
    const bool isLost =
        !allowed.empty() && i != 0 && i + 1 == block.size() && at == sector && !isAllowed(at - 1);
    if (kept[i] != (isAllowed(at) && !isFilled && !isLost))
      return "exactly the bytes that are meant are left";
  }
  return {};
}
