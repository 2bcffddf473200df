#pragma once

#include <string>

#include "host/load/LoadRecord.h"

namespace host {

// What a failure means for the user, and what to do about it; both empty when nothing is known of it.
struct Advice {
  std::string cause;
  std::string remedy;
};
Advice AdviceOn(const LoadRecord& record);

// "sector 65", "sectors 64..95"; empty when the failure is of no MAIN sector.
std::string SectorsText(const LoadFailure& failure, std::uint32_t sectorSize);

// What is known of a failure beyond its text, indented lines. Empty without a failure.
std::string FailureText(const LoadRecord& record);

}  // namespace host
