#include "host/device/Number.h"

#include <charconv>

namespace host {
namespace {

bool HasPrefix(std::string_view text) {
  return text.starts_with("0x") || text.starts_with("0X");
}

std::optional<std::uint64_t> Parse(std::string_view digits, int base) {
  std::uint64_t number = 0;
  const char* const end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, number, base);
  if (error != std::errc{} || stop != end) return std::nullopt;
  return number;
}

}  // namespace

std::optional<std::uint64_t> ParseNumber(std::string_view text) {
  return HasPrefix(text) ? Parse(text.substr(2), 16) : Parse(text, 10);
}

std::optional<std::uint64_t> ParseHexNumber(std::string_view text) {
  return Parse(HasPrefix(text) ? text.substr(2) : text, 16);
}

}  // namespace host
