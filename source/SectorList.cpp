#include "SectorList.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

namespace {

bool HoldsOnly(std::string const& text, char const* allowed) {
  return text.find_first_not_of(allowed) == std::string::npos;
}

std::uint32_t SectorIndex(std::string const& text) {
  return static_cast<std::uint32_t>(std::strtol(text.c_str(), nullptr, 10));
}

void RequireSectorExists(std::uint32_t sector, std::uint32_t sectorCount, std::string const& element) {
  if (sector < sectorCount) return;
  throw std::runtime_error("Given page is out of range: \"" + element +
                           "\"\nNote that the number of available pages is " + std::to_string(sectorCount) +
                           "\n");
}

// First and last sector of one list element.
std::pair<std::uint32_t, std::uint32_t> ParseElement(std::string const& element, std::uint32_t sectorCount) {
  if (!HoldsOnly(element, "0123465789-"))
    throw std::runtime_error("Invalid option was given \"" + element + "\".\n");
  if (element.find('-') == std::string::npos) {
    std::uint32_t const sector = SectorIndex(element);
    RequireSectorExists(sector, sectorCount, element);
    return {sector, sector};
  }
  std::vector<std::string> const ends = GetSubStrings(element, '-');
  std::uint32_t const first = SectorIndex(ends[0]);
  std::uint32_t const last = SectorIndex(ends[1]);
  if (ends[0].empty() || ends[1].empty() || first > last)
    throw std::runtime_error("Invalid range was given \"" + element + "\".\n");
  RequireSectorExists(last, sectorCount, element);
  return {first, last};
}

}  // namespace

std::vector<std::string> GetSubStrings(std::string const& text, char delimiter) {
  std::vector<std::string> pieces;
  std::istringstream stream(text);
  while (stream.good()) {
    std::string piece;
    std::getline(stream, piece, delimiter);
    pieces.push_back(piece);
  }
  return pieces;
}

SectorMask ParseSkippedSectors(std::string const& text, std::uint32_t sectorCount) {
  std::string list = text;
  std::erase_if(list, [](unsigned char character) { return std::isspace(character) != 0; });
  SectorMask mask(sectorCount, true);
  for (std::string const& element : GetSubStrings(list, ',')) {
    auto const [first, last] = ParseElement(element, sectorCount);
    std::fill(mask.begin() + first, mask.begin() + last + 1, false);
  }
  return mask;
}

std::vector<std::string> ConvertToAllowedSectorRanges(SectorMask const& mask, bool value) {
  std::vector<std::string> ranges;
  std::string range;
  for (std::size_t i = 0; i < mask.size(); ++i) {
    if (mask[i] != value) continue;
    bool const endsRun = i + 1 == mask.size() || mask[i + 1] != value;
    if (endsRun) {
      ranges.push_back(range + std::to_string(i));
      range.clear();
    } else if (range.empty()) {
      range = std::to_string(i) + "-";
    }
  }
  return ranges;
}

std::string JoinRanges(std::vector<std::string> const& ranges) {
  std::string text;
  for (std::string const& range : ranges) text += range + ", ";
  return text;
}

std::pair<std::uint32_t, std::uint32_t> GetStartAndEndAddressOfSectorOption(std::string const& range,
                                                                            std::uint32_t sectorSize) {
  if (range.find('-') == std::string::npos) {
    std::uint32_t const start = SectorIndex(range) * sectorSize;
    return {start, start + sectorSize - 1};
  }
  std::vector<std::string> const ends = GetSubStrings(range, '-');
  std::uint32_t const start = SectorIndex(ends[0]) * sectorSize;
  std::uint32_t const end = (SectorIndex(ends[1]) + 1) * sectorSize - 1;
  if (start > end) throw std::runtime_error("Invalid sector range: " + range);
  return {start, end};
}

// The decimal form accepts no digit at all: only letters, which read as 0. Users have the hexadecimal one.
std::uint8_t ParseFillValue(std::string const& text) {
  std::string const invalid = "Invalid option was given \"" + text + "\".";
  if (!HoldsOnly(text, "0123465789abcdefABCDEFxX"))
    throw std::runtime_error(invalid + " Contains invalid characters!\n");
  if (text.find_first_of("xX") != std::string::npos) {
    if (text.size() != 4) throw std::runtime_error(invalid + " Value must fit in one byte!\n");
    return static_cast<std::uint8_t>(std::strtoul(text.c_str(), nullptr, 16));
  }
  auto const value = static_cast<std::uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
  if (value > 1 || !HoldsOnly(text, "abcdefABCDEFxX")) throw std::runtime_error(invalid + "\n");
  return static_cast<std::uint8_t>(value);
}
