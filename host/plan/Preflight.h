#pragma once

#include <string>
#include <vector>

#include "host/device/FlashProperties.h"
#include "host/device/PropertyStore.h"
#include "host/plan/ImagePlan.h"

namespace host {

// What the erase step of a load will do, by the settings.
struct EraseChoice {
  std::string text;                  // as the settings name it
  bool erases = false;               // anything at all
  bool erasesConfiguration = false;  // CCFG and SCFG with it
  bool keepsMarkedSectors = false;   // MAIN sectors that the CCFG on the chip marks
};
EraseChoice ChosenErase(const PropertyStore& settings);

// A look at the images and settings before anything is done: one line for each thing that usually goes wrong.
// Empty for a load that nothing speaks against.
std::vector<std::string> WarnBeforeLoad(const LoadPlan& plan, const DeviceDescription& device,
                                        const PropertyStore& settings);

}  // namespace host
