#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>

#include "../LoadReport.h"

namespace host::cli {

using Json = nlohmann::ordered_json;

// One line on standard error, led by the program's name.
void Complain(std::string_view text);

// A message of the plug-in as it comes: information on standard output, errors on standard error. Line ends
// within it start an indented line.
void PrintMessage(const LoadMessage& message);

// The machine-readable result on standard output.
void PrintJson(const Json& result);
Json ToJson(const std::vector<LoadMessage>& messages);

// "12,345": a number with its thousands apart.
std::string Grouped(std::uint64_t number);
// "12.3 ms" or "1.25 s".
std::string Duration(std::uint64_t nanoseconds);

}  // namespace host::cli
