#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/load/LoadRecord.h"
#include "host/report/AppliedSettings.h"
#include "host/report/ConfigurationFields.h"
#include "host/report/Format.h"

namespace host {

// One load and what it was done with, for a page that is kept.
struct LoadReport {
  LoadRecord record;
  std::string started;      // "2026-11-23 13:08:05+0000"
  std::string probe;        // as the user names it
  std::string chip;         // of a simulated one, how it is kept; empty for a real one
  std::string plugin;       // its file
  std::string description;  // of the device, its file
  std::optional<std::uint32_t> wireHz;
  std::vector<AppliedSetting> settings;
  std::vector<ConfigurationField> configuration;
  bool configurationIsOnChip = false;
  // What the chip's memories hold, in words; empty where they cannot be looked at.
  std::vector<TitledText> before;
  std::vector<TitledText> after;
};

// One self-contained page of all these loads, of which there is one at least. `program` is the one that has
// made it, with its version.
std::string LoadHtml(std::string_view program, const std::vector<LoadReport>& reports);

}  // namespace host
