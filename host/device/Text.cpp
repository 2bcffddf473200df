#include "host/device/Text.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace host {
namespace {

char Lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Number of single-character insertions, deletions and substitutions between two texts.
std::size_t EditDistance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> row(right.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= left.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= right.size(); ++j) {
      const std::size_t substituted = diagonal + (left[i - 1] == right[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, substituted});
    }
  }
  return row.back();
}

}  // namespace

std::string LowerCase(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), Lower);
  return lower;
}

bool EqualButForCase(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return Lower(a) == Lower(b); });
}

bool IsHexDigits(std::string_view text) {
  return text.find_first_not_of("0123456789abcdefABCDEF") == std::string_view::npos;
}

std::vector<std::string> NearestNames(std::string_view name, std::span<const std::string> known,
                                      std::size_t count) {
  const std::string wanted = LowerCase(name);
  std::vector<std::pair<std::size_t, std::string>> ranked;
  for (const std::string& candidate : known) {
    const std::string lower = LowerCase(candidate);
    // A name that merely was cut short is as near as one with a slip of the finger.
    const bool contained = wanted.size() >= 4 && lower.find(wanted) != std::string::npos;
    const std::size_t distance = contained ? 1 : EditDistance(lower, wanted);
    if (distance <= std::max<std::size_t>(2, name.size() / 2)) ranked.emplace_back(distance, candidate);
  }
  std::stable_sort(ranked.begin(), ranked.end(),
                   [](const auto& left, const auto& right) { return left.first < right.first; });

  std::vector<std::string> nearest;
  for (const auto& [distance, candidate] : ranked)
    if (nearest.size() < count) nearest.push_back(candidate);
  return nearest;
}

}  // namespace host
