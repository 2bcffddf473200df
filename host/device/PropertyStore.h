#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>

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
  // Of a setting that is "1" or "0".
  [[nodiscard]] bool IsOn(std::string_view name) const { return Get(name) == "1"; }
  void Set(std::string_view name, std::string_view value);

  [[nodiscard]] const Values& All() const { return values; }

 private:
  Values values;
};

}  // namespace host
