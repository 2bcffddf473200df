#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace host {

// A number as users and device descriptions write it: decimal, or hexadecimal after 0x. Nothing when the
// text is anything else or the number needs more than 64 bits.
std::optional<std::uint64_t> ParseNumber(std::string_view text);

// A number that is hexadecimal with or without 0x, as the plug-in reads a device's facts.
std::optional<std::uint64_t> ParseHexNumber(std::string_view text);

}  // namespace host
