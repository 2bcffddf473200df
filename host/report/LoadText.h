#pragma once

#include <string>
#include <string_view>

#include "host/load/LoadRecord.h"
#include "host/report/Format.h"

namespace host {

// A comparison came first and found nothing to do.
inline constexpr std::string_view kAlreadyThere =
    "Already on the chip: nothing was erased, nothing was programmed";

// What will happen, before it happens.
std::string PlanText(const LoadRecord& record);

// "Chip Erase, then program and verify"
std::string PlannedSteps(const LoadRecord& record);
// What the plug-in found of the chip: "flash 512 KB (256 sectors), RAM 36 KB, revision C (2.0)".
std::string FoundText(const LoadRecord& record);
// "programmed; 4 bytes set or left out by the load"
std::string OutcomeOf(const RegionRecord& region);
// "sector 3 (0x00001800..0x00001fff) differs", of one of the record's differences
std::string DifferenceText(const LoadRecord& record, AddressRange range);

// What came of the load and what it took, a sentence: "Loaded and verified: 701.1 ms, ...".
std::string OutcomeSentence(const LoadRecord& record);

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
