#pragma once

#include "host/plan/Preflight.h"

namespace host {

// Adds what is wrong with the settings by themselves, whatever the images hold: the plug-in reads many of
// them only when the chip is erased already. Each finding begins with the setting's name. No password is
// repeated.
void CheckSettings(const DeviceDescription& device, const PropertyStore& settings, Preflight& found);

}  // namespace host
