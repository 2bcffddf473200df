#pragma once

#include <string_view>

#include "host/device/DeviceDescription.h"
#include "host/device/PropertyStore.h"

namespace host {

// Every property of a device with its default.
PropertyStore DefaultSettings(const DeviceDescription& device);

// Whether an assignment may go beyond the settings that the description offers: to facts, to values that the
// plug-in displays, to names of its own making.
enum class Beyond { Refused, Allowed };

// Carries out one NAME=VALUE of the user, with the value as the plug-in spells it. Throws InputError, with
// the settings unchanged, for a name that is no setting (naming the nearest ones) and for a value that does
// not suit.
void ApplySetting(const DeviceDescription& device, PropertyStore& settings, std::string_view assignment,
                  Beyond beyond = Beyond::Refused);

}  // namespace host
