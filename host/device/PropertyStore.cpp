#include "host/device/PropertyStore.h"

namespace host {

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

}  // namespace host
