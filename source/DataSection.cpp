#include "DataSection.h"

#include <algorithm>
#include <utility>

#include "SectorList.h"

namespace {

// Appends the allowed part of `section`; true when no further range need be looked at. The mix of strict and
// non-strict bounds is fixed behaviour: a range that begins at the section's last byte and runs past it
// writes nothing.
bool AppendAllowedPart(const DataSection& section, std::uint32_t start, std::uint32_t end,
                       std::vector<DataSection>& parts) {
  const std::uint32_t address = section.address;
  const std::uint32_t afterLast = address + section.length;
  const std::uint32_t last = afterLast - 1;

  if (start <= address && end >= last) {
    parts.push_back(section);
    return true;
  }
  if (address <= start && start <= afterLast && address <= end && end <= afterLast) {
    // The bounds admit a range that ends one byte behind the section: its data ends with the section's.
    const std::uint32_t length = std::min(end - start + 1, afterLast - start);
    if (length != 0) parts.emplace_back(section.data + (start - address), start, length);
  } else if (start < address && address <= end && end <= last) {
    parts.emplace_back(section.data, address, end - address + 1);
  } else if (start > address && start < last && end > last) {
    parts.emplace_back(section.data + (start - address), start, afterLast - start);
  }
  return false;
}

void AppendMerged(std::vector<DataSection>& kept, const DataSection& piece) {
  if (!kept.empty() && kept.back().address + kept.back().length == piece.address)
    kept.back().length += piece.length;
  else
    kept.push_back(piece);
}

}  // namespace

void ExcludeSpecificSectorsFromDataSections(std::vector<DataSection>* sections,
                                            const std::vector<std::string>& allowedRanges,
                                            std::uint32_t sectorSize) {
  std::vector<std::pair<std::uint32_t, std::uint32_t>> ranges;
  ranges.reserve(allowedRanges.size());
  for (const std::string& range : allowedRanges)
    ranges.push_back(GetStartAndEndAddressOfSectorOption(range, sectorSize));

  std::vector<DataSection> parts;
  for (const DataSection& section : *sections)
    for (const auto& [start, end] : ranges)
      if (AppendAllowedPart(section, start, end, parts)) break;
  *sections = std::move(parts);
}

void ExcludeSectorsFilledWithValueFromDataSections(std::vector<DataSection>* sections, std::uint8_t fillValue,
                                                   std::uint32_t sectorSize) {
  std::vector<DataSection> kept;
  for (const DataSection& section : *sections) {
    std::uint32_t taken = 0;
    for (std::uint32_t offset = 0; offset < section.length; offset += taken) {
      const std::uint32_t left = section.length - offset;
      DataSection piece(section.data + offset, section.address + offset, 0);
      const std::uint32_t intoSector = piece.address % sectorSize;
      taken = std::min(sectorSize - intoSector, left);
      piece.length = taken;
      const bool isWholeSector = taken == sectorSize;
      if (isWholeSector && std::all_of(piece.data, piece.data + taken,
                                       [fillValue](std::uint8_t byte) { return byte == fillValue; }))
        continue;
      AppendMerged(kept, piece);
    }
  }
  *sections = std::move(kept);
}
