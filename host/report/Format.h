#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/load/LoadReport.h"

namespace host {

using Json = nlohmann::ordered_json;

Json ToJson(const std::vector<LoadMessage>& messages);

// "12,345": a number with its thousands apart.
std::string Grouped(std::uint64_t number);
// "12.3 ms" or "1.25 s".
std::string Duration(std::uint64_t nanoseconds);

}  // namespace host
