#pragma once

#include <vector>

#include "host/cli/LoadVerb.h"
#include "host/image/ImageFile.h"

namespace host::cli {

// Loads all these boards at once, a thread each, and tells of one after the other when all have ended. The
// failure of one stops no other; an interrupt ends them all. Returns the worst of their exit codes. Throws
// InputError, or what a probe throws that cannot be reached, while no chip of any board has been touched.
int LoadSideBySide(const LoadOptions& load, const std::vector<TargetOptions>& boards,
                   const std::vector<ImageFile>& images, Output& output);

}  // namespace host::cli
