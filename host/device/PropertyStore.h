#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// The flash settings of one session: what the device description defaults, the user sets and the plug-in
// writes back, all as text.
class PropertyStore {
 public:
  using Values = std::map<std::string, std::string, std::less<>>;

  PropertyStore() = default;
  explicit PropertyStore(Values defaults) : values(std::move(defaults)) {}

  // Null when there is no such property. The pointer stays valid until the property is set again.
  [[nodiscard]] const std::string* Find(std::string_view name) const;
  // The value, or `fallback` when there is no such property.
  [[nodiscard]] std::string Get(std::string_view name, std::string_view fallback = {}) const;
  void Set(std::string_view name, std::string_view value);

  [[nodiscard]] const Values& All() const { return values; }
  // Known names that look most like `name`, best first, at most `count`.
  [[nodiscard]] std::vector<std::string> Nearest(std::string_view name, std::size_t count) const;

 private:
  Values values;
};

// Number of single-character insertions, deletions and substitutions between two texts, letter case aside.
[[nodiscard]] std::size_t EditDistance(std::string_view left, std::string_view right);

}  // namespace host
