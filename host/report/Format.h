#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/load/LoadRecord.h"

namespace host {

using Json = nlohmann::ordered_json;
using TitledText = std::pair<std::string, std::string>;

Json ToJson(const std::vector<LoadMessage>& messages);

// "12,345": a number with its thousands apart.
std::string Grouped(std::uint64_t number);
// "1 byte", "12,345 bytes"
std::string Bytes(std::uint64_t count);
// "MAIN" of "main"
std::string Upper(std::string_view text);
// "12.3 ms" or "1.25 s".
std::string Duration(std::uint64_t nanoseconds);

}  // namespace host
