#include "host/report/Format.h"

#include <fmt/format.h>
#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>

namespace host {

Json ToJson(const std::vector<LoadMessage>& messages) {
  Json list = Json::array();
  for (const LoadMessage& message : messages)
    list.push_back({{"kind", message.isError ? "error" : "info"}, {"text", message.text}});
  return list;
}

std::string Grouped(std::uint64_t number) {
  const std::string digits = fmt::format("{}", number);
  std::string grouped;
  for (std::size_t i = 0; i < digits.size(); ++i) {
    if (i != 0 && (digits.size() - i) % 3 == 0) grouped += ',';
    grouped += digits[i];
  }
  return grouped;
}

std::string Bytes(std::uint64_t count) {
  return fmt::format("{} byte{}", Grouped(count), count == 1 ? "" : "s");
}

std::string Upper(std::string_view text) {
  std::string upper(text);
  std::transform(upper.begin(), upper.end(), upper.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return upper;
}

double Milliseconds(std::uint64_t nanoseconds) {
  return static_cast<double>(nanoseconds) / 1e6;
}

std::string Duration(std::uint64_t nanoseconds) {
  const double seconds = static_cast<double>(nanoseconds) / 1e9;
  return seconds < 1 ? fmt::format("{:.1f} ms", seconds * 1e3) : fmt::format("{:.2f} s", seconds);
}

std::string Wrapped(std::string_view lead, std::string_view text, std::size_t indent) {
  constexpr std::size_t kWidth = 80;
  while (text.ends_with('\n')) text.remove_suffix(1);
  std::string wrapped(lead);
  std::size_t column = lead.size();
  bool isLineBegin = true, isLineEnd = false;
  for (;;) {
    const std::size_t word = std::min(text.find_first_of(" \n"), text.size());
    if (isLineEnd || (!isLineBegin && column + 1 + word > kWidth)) {
      wrapped += '\n' + std::string(indent, ' ');
      column = indent;
    } else if (!isLineBegin) {
      wrapped += ' ';
      ++column;
    }
    isLineBegin = false;
    wrapped += text.substr(0, word);
    column += word;
    if (word == text.size()) return wrapped + '\n';
    isLineEnd = text[word] == '\n';
    text.remove_prefix(word + 1);
  }
}

}  // namespace host
