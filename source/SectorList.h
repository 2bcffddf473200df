#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// Lists of MAIN sectors: as the user writes them ("0, 2-4"), as a mask with one entry a sector, and as range
// texts ("3" or "5-7", both ends included, decimal). Pure; failures are std::runtime_error.

using SectorMask = std::vector<bool>;

// Splits at every delimiter: one piece more than there are delimiters, empty pieces included.
[[nodiscard]] std::vector<std::string> GetSubStrings(const std::string& text, char delimiter);

// The mask of the sectors that `text` does not list. White space is ignored; an empty element is sector 0.
[[nodiscard]] SectorMask ParseSkippedSectors(const std::string& text, std::uint32_t sectorCount);

// The runs of entries equal to `value`, as range texts in ascending order.
[[nodiscard]] std::vector<std::string> ConvertToAllowedSectorRanges(const SectorMask& mask, bool value);

// The range texts as the log shows them: each followed by ", ".
[[nodiscard]] std::string JoinRanges(const std::vector<std::string>& ranges);

// First and last byte address that a range text covers; 32-bit arithmetic.
[[nodiscard]] std::pair<std::uint32_t, std::uint32_t> GetStartAndEndAddressOfSectorOption(
    const std::string& range, std::uint32_t sectorSize);

// The byte that marks sectors to skip: "0x" and two hexadecimal digits.
[[nodiscard]] std::uint8_t ParseFillValue(const std::string& text);
