#pragma once

#include <string>

#include "host/load/LoadRecord.h"
#include "host/plugin/SaciWatch.h"

namespace host {

// The region that a command of a load of `plan` is for; nothing for one that is for none or for the whole
// chip.
std::optional<Region> RegionOf(const SaciExchange& exchange, const LoadPlan& plan);

// The failure of a load with this error text: at its last exchange with the chip when that failed, else in
// the block that the plug-in did not take (null when it took all).
LoadFailure PlaceFailure(const std::string& text, const LoadPlan& plan, const DeviceDescription& device,
                         const SaciWatch& watch, const ImageBlock* failedBlock);

}  // namespace host
