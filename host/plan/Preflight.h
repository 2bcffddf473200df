#pragma once

#include <string>
#include <vector>

#include "host/device/DeviceDescription.h"
#include "host/device/PropertyStore.h"
#include "host/plan/EraseChoice.h"
#include "host/plan/LoadPlan.h"

namespace host {

// A look at images and settings before anything is done to a chip, one line a finding.
struct Preflight {
  std::vector<std::string> refusals;  // the load would fail, or do something else than it says
  std::vector<std::string> warnings;  // what usually is a mistake, and may be meant
};

struct PreflightOptions {
  bool allowOutside = false;     // bytes that lie in no memory are handed on as RAM data
  bool chipIsDescribed = false;  // the target is made from the description's <chip>: they must agree
};

// Whether it is a load or a verification is one of the settings.
Preflight Inspect(const LoadPlan& plan, const DeviceDescription& device, const PropertyStore& settings,
                  PreflightOptions options = {});

// How the facts by which images are cut differ from the <chip> of the same description; empty when they
// agree.
std::vector<std::string> Contradictions(const DeviceDescription& device);

}  // namespace host
