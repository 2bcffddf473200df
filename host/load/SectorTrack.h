#pragma once

#include <vector>

#include "host/device/DeviceDescription.h"
#include "host/load/FlashMap.h"
#include "host/plan/LoadPlan.h"
#include "host/plugin/SaciWatch.h"

namespace host {

// What a load of `plan` did to each MAIN sector, by what went over the wire. The plug-in took the first
// `blocksTaken` blocks without an error.
std::vector<SectorState> TrackSectors(const LoadPlan& plan, const DeviceDescription& device,
                                      const SaciWatch& watch, std::size_t blocksTaken);

}  // namespace host
