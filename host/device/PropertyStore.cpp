#include "host/device/PropertyStore.h"

#include <algorithm>
#include <cctype>
#include <numeric>
#include <utility>

namespace host {

namespace {

char Lower(char c) {
  return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

std::string Lower(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) { return Lower(c); });
  return lower;
}

}  // namespace

const std::string* PropertyStore::Find(std::string_view name) const {
  const auto found = values.find(name);
  return found == values.end() ? nullptr : &found->second;
}

std::string PropertyStore::Get(std::string_view name, std::string_view fallback) const {
  const std::string* value = Find(name);
  return value != nullptr ? *value : std::string(fallback);
}

void PropertyStore::Set(std::string_view name, std::string_view value) {
  values.insert_or_assign(std::string(name), std::string(value));
}

std::vector<std::string> PropertyStore::Nearest(std::string_view name, std::size_t count) const {
  std::vector<std::pair<std::size_t, std::string>> ranked;
  const std::string wanted = Lower(name);
  for (const auto& [known, value] : values) {
    // A name that merely was cut short is as near as one with a slip of the finger.
    const bool contained = wanted.size() >= 4 && Lower(known).find(wanted) != std::string::npos;
    ranked.emplace_back(contained ? 1 : EditDistance(known, name), known);
  }
  std::stable_sort(ranked.begin(), ranked.end(),
                   [](const auto& left, const auto& right) { return left.first < right.first; });

  std::vector<std::string> nearest;
  for (const auto& [distance, known] : ranked) {
    if (nearest.size() == count || distance > std::max<std::size_t>(2, name.size() / 2)) break;
    nearest.push_back(known);
  }
  return nearest;
}

std::size_t EditDistance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> row(right.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= left.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= right.size(); ++j) {
      const std::size_t substituted = diagonal + (Lower(left[i - 1]) == Lower(right[j - 1]) ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, substituted});
    }
  }
  return row.back();
}

}  // namespace host
