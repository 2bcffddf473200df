#pragma once

#include <cstdint>
#include <span>
#include <string>

// What speaks against storing `data`: empty when every setting of `list` reads as it should, otherwise the
// whole message for the user. `list` holds "name:0x12[L|H]:expected" entries joined by ','; offsets count
// from the start of `data`, offset 0 and bytes that `data` does not hold are not compared. `region` names the
// sector in the message. Throws std::out_of_range for an entry with a field missing and std::runtime_error
// for a number that is none.
[[nodiscard]] std::string PermissionObjections(const std::string& list, const std::string& region,
                                               std::span<const std::uint8_t> data);
