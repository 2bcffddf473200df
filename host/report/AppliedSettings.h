#pragma once

#include <string>
#include <vector>

#include "host/device/DeviceDescription.h"
#include "host/device/PropertyStore.h"

namespace host {

// A flash setting as a load was given it.
struct AppliedSetting {
  std::string name;
  std::string
      value;  // as a person reads it; of a password, or of digits that stand for one, only that it is there
  std::string usual;  // by the description; empty where the value is that, or has none
  std::string meaning;
  bool isUsual = true;
};

// All that the description lets a user choose, in its order; then what was set beyond that, without values
// of which nobody knows what they are.
std::vector<AppliedSetting> AppliedSettings(const DeviceDescription& device, const PropertyStore& settings);

}  // namespace host
