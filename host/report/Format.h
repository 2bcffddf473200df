#pragma once

#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/load/LoadRecord.h"

namespace host {

using Json = nlohmann::ordered_json;
using TitledText = std::pair<std::string, std::string>;

Json ToJson(const std::vector<LoadMessage>& messages);
template <typename Value>
Json OrNull(const std::optional<Value>& value) {
  return value ? Json(*value) : Json(nullptr);
}

// "12,345": a number with its thousands apart.
std::string Grouped(std::uint64_t number);
// "1 byte", "12,345 bytes"
std::string Bytes(std::uint64_t count);
// "MAIN" of "main"
std::string Upper(std::string_view text);
double Milliseconds(std::uint64_t nanoseconds);
// "12.3 ms" or "1.25 s".
std::string Duration(std::uint64_t nanoseconds);
// `lead` and then the words of `text`, in lines of 80 columns where the words allow; the lines behind the
// first are indented. Ends with a line end.
std::string Wrapped(std::string_view lead, std::string_view text, std::size_t indent);

}  // namespace host
