#pragma once

#include <string>

#include "host/report/LoadHtml.h"

// Parts of the page of a load, each with its headings from `level` on; empty where there is nothing to say.
namespace host::html {

// MAIN flash by sectors, before and after.
std::string FlashPart(const LoadRecord& record, int level);

// Where the time went, phase by phase, against what the wire alone would have taken.
std::string TimePart(const LoadReport& report, int level);

// What the configuration says, and the settings.
std::string ConfigurationPart(const LoadReport& report, int level);
std::string SettingsPart(const LoadReport& report, int level);

}  // namespace host::html
