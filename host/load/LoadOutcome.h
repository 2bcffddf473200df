#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "host/load/LoadRecord.h"
#include "host/plugin/SaciWatch.h"

namespace host {

// The course of a load as its driver knows it.
struct LoadCourse {
  std::size_t blocksTaken = 0;       // of the plan, by the plug-in without an error
  std::optional<std::string> error;  // that ended it
};

// Sets the outcome of every region and MAIN sector, and the failure with its place, from what went over the
// wire. Holds for any plug-in and any probe.
void JudgeLoad(LoadRecord& record, const LoadPlan& plan, const DeviceDescription& device,
               const SaciWatch& watch, const LoadCourse& course);

}  // namespace host
