#include "Output.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <cstdio>

namespace host::cli {

namespace {

// The plug-in ends some of its lines itself.
std::string_view WithoutLineEnd(std::string_view text) {
  while (text.ends_with('\n')) text.remove_suffix(1);
  return text;
}

std::string Indented(std::string_view text) {
  std::string indented;
  for (char const c : text) {
    indented += c;
    if (c == '\n') indented += "    ";
  }
  return indented;
}

}  // namespace

void Complain(std::string_view text) {
  std::fflush(stdout);  // so that the lines keep their order on a terminal
  fmt::print(stderr, "tovik-flash: {}\n", Indented(WithoutLineEnd(text)));
}

void PrintMessage(const LoadMessage& message) {
  if (message.isError) {
    Complain(message.text);
  } else {
    fmt::print("  | {}\n", Indented(WithoutLineEnd(message.text)));
  }
}

void PrintJson(const Json& result) {
  fmt::print("{}\n", result.dump(2, ' ', false, Json::error_handler_t::replace));
}

Json ToJson(const std::vector<LoadMessage>& messages) {
  Json list = Json::array();
  for (const LoadMessage& message : messages)
    list.push_back({{"kind", message.isError ? "error" : "info"}, {"text", message.text}});
  return list;
}

std::string Grouped(std::uint64_t number) {
  std::string const digits = fmt::format("{}", number);
  std::string grouped;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i != 0 && (digits.size() - i) % 3 == 0) grouped += ',';
    grouped += digits[i];
  }
  return grouped;
}

std::string Duration(std::uint64_t nanoseconds) {
  double const seconds = static_cast<double>(nanoseconds) / 1e9;
  return seconds < 1 ? fmt::format("{:.1f} ms", seconds * 1e3) : fmt::format("{:.2f} s", seconds);
}

}  // namespace host::cli
