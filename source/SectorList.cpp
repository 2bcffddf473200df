#include "SectorList.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace {

bool HoldsOnly(const std::string& text, const char* allowed) {
  return text.find_first_not_of(allowed) == std::string::npos;
}

std::uint32_t SectorIndex(const std::string& text) {
  return static_cast<std::uint32_t>(std::strtol(text.c_str(), nullptr, 10));
}

void RequireSectorExists(std::uint32_t sector, std::uint32_t sectorCount, const std::string& element) {
  if (sector < sectorCount) return;
  throw std::runtime_error("Given page is out of range: \"" + element +
                           "\"\nNote that the number of available pages is " + std::to_string(sectorCount) +
                           "\n");
}

// First and last sector of one list element.
std::pair<std::uint32_t, std::uint32_t> ParseElement(const std::string& element, std::uint32_t sectorCount) {
  if (!HoldsOnly(element, "0123465789-"))
    throw std::runtime_error("Invalid option was given \"" + element + "\".\n");
  if (element.find('-') == std::string::npos) {
    const std::uint32_t sector = SectorIndex(element);
    RequireSectorExists(sector, sectorCount, element);
    return {sector, sector};
  }
  const std::vector<std::string> ends = GetSubStrings(element, '-');
  const std::uint32_t first = SectorIndex(ends[0]);
  const std::uint32_t last = SectorIndex(ends[1]);
  if (ends[0].empty() || ends[1].empty() || first > last)
    throw std::runtime_error("Invalid range was given \"" + element + "\".\n");
  RequireSectorExists(last, sectorCount, element);
  return {first, last};
}

}  // namespace

std::vector<std::string> GetSubStrings(const std::string& text, char delimiter) {
  std::vector<std::string> pieces;
  std::istringstream stream(text);
  while (stream.good()) {
    std::string piece;
    std::getline(stream, piece, delimiter);
    pieces.push_back(piece);
  }
  return pieces;
}

SectorMask ParseSkippedSectors(const std::string& text, std::uint32_t sectorCount) {
  std::string list = text;
  std::erase_if(list, [](unsigned char character) { return std::isspace(character) != 0; });
  SectorMask mask(sectorCount, true);
  for (const std::string& element : GetSubStrings(list, ',')) {
    const auto [first, last] = ParseElement(element, sectorCount);
    std::fill(mask.begin() + first, mask.begin() + last + 1, false);
  }
  return mask;
}

std::vector<std::string> ConvertToAllowedSectorRanges(const SectorMask& mask, bool value) {
  std::vector<std::string> ranges;
  std::string range;
  for (std::size_t i = 0; i < mask.size(); ++i) {
    if (mask[i] != value) continue;
    const bool endsRun = i + 1 == mask.size() || mask[i + 1] != value;
    if (endsRun) {
      ranges.push_back(range + std::to_string(i));
      range.clear();
    } else if (range.empty()) {
      range = std::to_string(i) + "-";
    }
  }
  return ranges;
}

std::string JoinRanges(const std::vector<std::string>& ranges) {
  std::string text;
  for (const std::string& range : ranges) text += range + ", ";
  return text;
}

std::pair<std::uint32_t, std::uint32_t> GetStartAndEndAddressOfSectorOption(const std::string& range,
                                                                            std::uint32_t sectorSize) {
  if (range.find('-') == std::string::npos) {
    const std::uint32_t start = SectorIndex(range) * sectorSize;
    return {start, start + sectorSize - 1};
  }
  const std::vector<std::string> ends = GetSubStrings(range, '-');
  const std::uint32_t start = SectorIndex(ends[0]) * sectorSize;
  const std::uint32_t end = (SectorIndex(ends[1]) + 1) * sectorSize - 1;
  if (start > end) throw std::runtime_error("Invalid sector range: " + range);
  return {start, end};
}

std::uint8_t ParseFillValue(const std::string& text) {
  const std::string invalid = "Invalid option was given \"" + text + "\".";
  if (!HoldsOnly(text, "0123465789abcdefABCDEFxX"))
    throw std::runtime_error(invalid + " Contains invalid characters!\n");
  if (text.find_first_of("xX") != std::string::npos) {
    if (text.size() != 4) throw std::runtime_error(invalid + " Value must fit in one byte!\n");
    return static_cast<std::uint8_t>(std::strtoul(text.c_str(), nullptr, 16));
  }
  // Without 0x no digit is accepted, and letters alone read as a decimal number: 0.
  if (!HoldsOnly(text, "abcdefABCDEF")) throw std::runtime_error(invalid + "\n");
  return 0;
}
