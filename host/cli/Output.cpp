#include "host/cli/Output.h"

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
  for (const char c : text) {
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

}  // namespace host::cli
