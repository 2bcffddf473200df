#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// Letter case here is that of ASCII: names of files, settings and formats.
std::string LowerCase(std::string_view text);
bool EqualButForCase(std::string_view left, std::string_view right);
// Whether all of it is 0-9, a-f or A-F; an empty text is.
bool IsHexDigits(std::string_view text);

// Those of `known` that look most like `name`, best first, at most `count`; none when nothing is near. For
// "did you mean" hints.
std::vector<std::string> NearestNames(std::string_view name, std::span<const std::string> known,
                                      std::size_t count);

}  // namespace host
