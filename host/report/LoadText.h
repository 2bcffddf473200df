#pragma once

#include <string>
#include <vector>

#include "host/device/FlashProperties.h"
#include "host/device/PropertyStore.h"
#include "host/load/FlashMap.h"
#include "host/load/LoadReport.h"
#include "host/plan/Preflight.h"
#include "host/probe/ChipPicture.h"
#include "host/report/Format.h"

namespace host {

// Everything that a person or a program may want to know of one load.
struct LoadStory {
  const DeviceDescription& device;
  const PropertyStore& settings;  // as the plug-in left them
  const std::vector<ImageFile>& images;
  const std::vector<std::string>& warnings;
  const LoadReport& report;
  const std::vector<SectorState>& sectors;
  const ChipPicture& before;
  const ChipPicture& after;
  std::uint64_t roundTrips = 0;
  bool isDryRun = false;
};

// What will happen, before it happens.
std::string PlanText(const LoadPlan& plan, const DeviceDescription& device, const PropertyStore& settings,
                     const std::vector<ImageFile>& images, LoadMode mode);

// The summary after a load, successful or not.
std::string SummaryText(const LoadStory& story);

Json ToJson(const LoadStory& story, int exitCode);

}  // namespace host
