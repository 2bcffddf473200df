#pragma once

#include <cstdint>
#include <string>
#include <vector>

// One contiguous piece of image data: a view, valid during the call that delivered the block.
struct DataSection {
  DataSection(const std::uint8_t* firstByte, std::uint32_t targetAddress, std::uint32_t byteCount)
      : data(firstByte), address(targetAddress), length(byteCount) {}

  const std::uint8_t* data;
  std::uint32_t address;
  std::uint32_t length;
};

// Replaces the sections by their parts inside the allowed ranges (texts of SectorList.h), in order.
void ExcludeSpecificSectorsFromDataSections(std::vector<DataSection>* sections,
                                            const std::vector<std::string>& allowedRanges,
                                            std::uint32_t sectorSize);

// Drops the whole sectors whose bytes all equal `fillValue`; parts of a sector at the ends of a section stay.
// Neighbouring pieces come out merged.
void ExcludeSectorsFilledWithValueFromDataSections(std::vector<DataSection>* sections, std::uint8_t fillValue,
                                                   std::uint32_t sectorSize);
