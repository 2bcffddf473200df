#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "host/image/ImageFile.h"

namespace host {

// The readers of the single formats, for ImageFile.cpp. Each takes the whole file, gives its segments in file
// order (possibly none) and throws InputError naming `name`, and the line where the format has lines.

std::vector<ImageSegment> ParseElf(std::string_view name, std::span<const std::uint8_t> content);
std::vector<ImageSegment> ParseIntelHex(std::string_view name, std::string_view text);
std::vector<ImageSegment> ParseSRecord(std::string_view name, std::string_view text);

}  // namespace host
