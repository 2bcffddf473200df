#pragma once

#include <span>

#include "host/device/MemoryMap.h"
#include "host/image/ImageFile.h"
#include "host/plan/LoadPlan.h"
#include "host/plan/MainBlocks.h"

namespace host {

// Cuts the images into the blocks of one load: sorted, merged, cut at the borders of all regions; no two
// blocks in one MAIN sector; CCFG, SCFG and OTP as one block each that is the whole region, except that
// images which hold nothing of the CCFG but its user record give a block of just that record. Bytes that no
// image gives are 0xFF. Addresses in the device's alias come out as plain ones. What lies in no memory is
// planned, too, and told as stray. Throws InputError when images overlap, naming both and the range.
LoadPlan PlanLoad(std::span<const ImageFile> images, const MemoryMap& map, PluginCuts cuts);

}  // namespace host
