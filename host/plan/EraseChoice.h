#pragma once

#include <string>

#include "host/device/PropertyStore.h"
#include "host/plan/LoadPlan.h"

namespace host {

// What happens to the chip before a load programs it.
struct EraseChoice {
  std::string text;     // as the settings name it; empty for a load that erases nothing whatever they say
  bool erases = false;  // anything at all
  bool erasesConfiguration = false;  // CCFG and SCFG with it
  bool keepsConfiguration = false;   // MAIN is erased, CCFG and SCFG are neither erased nor programmed
  bool keepsMarkedSectors = false;   // MAIN sectors that the CCFG on the chip marks
};

// By the settings alone. An unknown name erases nothing, in the plug-in as here.
EraseChoice ChosenErase(const PropertyStore& settings);
bool IsKnownErase(const EraseChoice& choice);

// What this load will erase. The plug-in erases at the first block for flash, and not at all when that is a
// user record, when there is none, or when it only compares.
EraseChoice EraseOf(const LoadPlan& plan, const PropertyStore& settings);

}  // namespace host
