#pragma once

#include <string>

#include "host/load/LoadRecord.h"
#include "host/report/Format.h"

namespace host {

// What will happen, before it happens.
std::string PlanText(const LoadRecord& record);

// The summary after a load, successful or not. The failure's own text is not part of it: that goes to
// standard error, and FailureText with it.
std::string SummaryText(const LoadRecord& record);

// "interrupted while program MAIN ..."
std::string InterruptText(const LoadRecord& record);

// The document of docs/json.md.
Json ToJson(const LoadRecord& record);
// The `failure` and the `phases_ms` of it.
Json FailureJson(const LoadRecord& record);
Json PhasesJson(const std::array<std::uint64_t, kPhaseCount>& phaseNs);

}  // namespace host
