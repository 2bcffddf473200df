#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/plan/LoadMode.h"
#include "host/plan/LoadPlan.h"
#include "host/probe/ChipPicture.h"

namespace host {

// What became of one region of the images.
enum class RegionOutcome {
  NotReached,   // the load failed before the plug-in took it up
  Failed,       // the plug-in refused it, or its verification failed
  Delivered,    // the plug-in took it and reported success; the chip has not been looked at
  Programmed,   // the chip holds these very bytes
  Adapted,      // programmed, but the load changed some bytes (CRC words, authorization)
  NotWritten,   // the load was a success and left the region as it was
  Verified,     // compared by the plug-in and found equal
  NotCompared,  // a verification does not look at such a region
};

// As a person reads it: "programmed".
std::string_view OutcomeText(RegionOutcome outcome);

struct RegionReport {
  Region region = Region::Outside;
  std::uint32_t address = 0;  // of the first byte
  std::uint64_t end = 0;      // one past the last byte
  std::size_t bytes = 0;      // that the images give
  std::size_t sectors = 0;    // MAIN sectors touched; 1 for a configuration region; 0 for RAM
  std::uint32_t crc = 0;      // CRC-32 of the blocks in address order, fill included
  RegionOutcome outcome = RegionOutcome::NotReached;
  std::size_t adaptedBytes = 0;  // of Adapted
};

struct LoadMessage {
  bool isError = false;
  std::string text;
};

// The result of one load.
struct LoadReport {
  LoadMode mode = LoadMode::Program;
  std::vector<RegionReport> regions;  // those that the images touch, in the order of their addresses
  std::vector<LoadMessage> messages;  // of the plug-in, in the order they came
  std::optional<std::string> error;   // what ended the load; nothing when it came to its end
  std::string note;                   // what a verification left out, for the user; empty otherwise
  std::uint64_t elapsedNs = 0;        // of the probe's clock
  std::uint64_t bytesWritten = 0;     // over the wire: command words and RAM data
  std::uint64_t hostCalls = 0;

  [[nodiscard]] bool HasErrorMessages() const;
};

// The regions of a plan, nothing of them reached yet.
std::vector<RegionReport> DescribeRegions(const LoadPlan& plan, const MemoryMap& map);

// Sets the outcomes of a programming load from what was written to the chip in it and what it holds then. A
// region that the load did not report done and that was written as it should counts as programmed.
void JudgeByContents(LoadReport& report, const LoadPlan& plan, const MemoryMap& map,
                     const ChipPicture& before, const ChipPicture& after);

}  // namespace host
