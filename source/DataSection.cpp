#include "DataSection.h"

#include <algorithm>
#include <utility>

#include "SectorList.h"

namespace {

// Appends the allowed part of `section`; true when no further range need be looked at. The mix of strict and
// non-strict bounds is fixed behaviour: a range that begins at the section's last byte and runs past it
// writes nothing.
bool AppendAllowedPart(DataSection const& section, std::uint32_t start, std::uint32_t end,
                       std::vector<DataSection>& parts) {
  std::uint32_t const address = section.address;
  std::uint32_t const afterLast = address + section.length;
  std::uint32_t const last = afterLast - 1;

  if (start <= address && end >= last) {
    parts.push_back(section);
    return true;
  }
  if (address <= start && start <= afterLast && address <= end && end <= afterLast) {
    // The bounds admit a range that ends one byte behind the section: its data ends with the section's.
    std::uint32_t const length = std::min(end - start + 1, afterLast - start);
    if (length != 0) parts.emplace_back(section.data + (start - address), start, length);
  } else if (start < address && address <= end && end <= last) {
    parts.emplace_back(section.data, address, end - address + 1);
  } else if (start > address && start < last && end > last) {
    parts.emplace_back(section.data + (start - address), start, afterLast - start);
  }
  return false;
}

void AppendMerged(std::vector<DataSection>& kept, DataSection const& piece) {
  if (!kept.empty() && kept.back().address + kept.back().length == piece.address)
    kept.back().length += piece.length;
  else
    kept.push_back(piece);
}

}  // namespace

void ExcludeSpecificSectorsFromDataSections(std::vector<DataSection>* sections,
                                            std::vector<std::string> const& allowedRanges,
                                            std::uint32_t sectorSize) {
  std::vector<std::pair<std::uint32_t, std::uint32_t>> ranges;
  ranges.reserve(allowedRanges.size());
  for (std::string const& range : allowedRanges)
    ranges.push_back(GetStartAndEndAddressOfSectorOption(range, sectorSize));

  std::vector<DataSection> parts;
  for (DataSection const& section : *sections)
    for (auto const& [start, end] : ranges)
      if (AppendAllowedPart(section, start, end, parts)) break;
  *sections = std::move(parts);
}

void ExcludeSectorsFilledWithValueFromDataSections(std::vector<DataSection>* sections, std::uint8_t fillValue,
                                                   std::uint32_t sectorSize) {
  std::vector<DataSection> kept;
  for (DataSection const& section : *sections) {
    std::uint32_t taken = 0;
    for (std::uint32_t offset = 0; offset < section.length; offset += taken) {
      std::uint32_t const left = section.length - offset;
      DataSection piece(section.data + offset, section.address + offset, 0);
      std::uint32_t const intoSector = piece.address % sectorSize;
      taken = std::min(sectorSize - intoSector, left);
      piece.length = taken;
      bool const isWholeSector = taken == sectorSize;
      if (isWholeSector && std::all_of(piece.data, piece.data + taken,
                                       [fillValue](std::uint8_t byte) { return byte == fillValue; }))
        continue;
      AppendMerged(kept, piece);
    }
  }
  *sections = std::move(kept);
}
