#pragma once

#include <string>
#include <vector>

#include "host/load/LoadRecord.h"
#include "host/report/Format.h"

namespace host {

// What a failure means for the user, and what to do about it; both empty when nothing is known of it.
struct Advice {
  std::string cause;
  std::string remedy;
};
Advice AdviceOn(const LoadRecord& record);

// "sector 65", "sectors 64..95"; empty when the failure is of no MAIN sector.
std::string SectorsText(const LoadFailure& failure, std::uint32_t sectorSize);

// What is known of a failure beyond its text: "At", "Chip", "Cause", "Remedy". Empty without a failure.
std::vector<TitledText> FailureLines(const LoadRecord& record);
// The same as indented lines.
std::string FailureText(const LoadRecord& record);

}  // namespace host
