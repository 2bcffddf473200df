#pragma once

#include "host/plan/Preflight.h"

namespace host {

// Refuses a CCFG or SCFG that the plug-in's permission check would refuse, which it does when MAIN flash is
// programmed already.
void CheckPermissions(const LoadPlan& plan, const PropertyStore& settings, Preflight& found);

}  // namespace host
