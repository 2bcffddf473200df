#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/device/DeviceDescription.h"
#include "host/device/PropertyStore.h"
#include "host/image/ImageFile.h"
#include "host/load/FlashMap.h"
#include "host/plan/LoadMode.h"
#include "host/plan/LoadPlan.h"
#include "host/plugin/SaciNames.h"
#include "host/probe/ChipPicture.h"

namespace host {

// What became of one region of the images.
enum class RegionOutcome {
  NotReached,   // the load ended before it; nothing of it went to the chip
  Failed,       // not programmed, or only in part, or not as it should be
  Programmed,   // and compared by the chip: it is as it should be
  Unverified,   // programmed; nothing has compared it
  NotWritten,   // the load passed by and left the region as it was
  Verified,     // compared by a verification and found equal
  Differs,      // compared by a verification and found different
  NotCompared,  // a verification did not get there, or does not look at such a region
};

// As a person reads it: "programmed".
std::string_view OutcomeText(RegionOutcome outcome);

struct RegionRecord {
  Region region = Region::Outside;
  std::vector<AddressRange>
      ranges;               // what the images give, ascending; a region that is programmed as one is one
  std::size_t bytes = 0;    // that the images give
  std::size_t sectors = 0;  // MAIN sectors touched; 1 for a configuration region; 0 for RAM
  std::uint32_t crc = 0;    // CRC-32 of the blocks in address order, fill included
  RegionOutcome outcome = RegionOutcome::NotReached;
  // Where the chip can be looked at: bytes of a programmed region that are not the images', because the load
  // set or left them out.
  std::optional<std::size_t> adaptedBytes;
};

// Where and why a load ended, from what went over the wire.
struct LoadFailure {
  std::string text;              // the plug-in's, unchanged
  std::optional<Phase> phase{};  // that the plug-in was in; none for a verdict of the host
  std::optional<Region> region{};
  AddressRange range{};                        // of that region; size 0 when it is not known
  std::optional<std::uint32_t> firstSector{};  // of MAIN flash, when the range lies there
  std::optional<std::uint8_t> command{};       // that the chip failed
  std::optional<std::uint8_t> result{};        // of that command; none when it was not answered, or wrongly
};

struct LoadMessage {
  bool isError = false;
  std::string text;
};

struct PlannedImage {
  std::string name;
  std::string format;
  std::size_t bytes = 0;
  std::string sha256{};  // of the file
};

// Bytes of a region that a load has changed, where the chip can be looked at.
struct RegionChange {
  Region region = Region::Outside;
  std::size_t bytes = 0;
};

// One MAIN sector before and after a load, where the chip can be looked at.
struct SectorChange {
  bool wasBlank = true;
  bool hasChanged = false;
};

// What one load is to do, and then what it did. Text, JSON and the page are made of it.
struct LoadRecord {
  LoadMode mode = LoadMode::Program;
  std::string device;
  std::string deviceDescription;
  std::vector<PlannedImage> images;
  std::string erase;  // as the settings name it
  std::vector<std::string> warnings;
  bool isDryRun = false;

  std::vector<RegionRecord> regions;  // those that the images touch, in the order of their addresses
  std::uint32_t sectorSize = 0;
  std::vector<SectorState> sectors;         // of MAIN flash
  std::vector<AddressRange> differences;    // of MAIN flash, whole sectors, as far as they were searched for
  std::vector<LoadMessage> messages;        // of the plug-in, in the order they came
  std::vector<std::string> notes;           // for the user, a line each
  std::optional<LoadFailure> failure;       // what ended the load; nothing when it came to its end
  bool isInterrupted = false;               // by the user
  bool wasThere = false;                    // a comparison found all of it on the chip: nothing was done
  std::vector<RegionChange> changes;        // empty where the chip cannot be looked at
  std::vector<SectorChange> sectorChanges;  // of MAIN flash; empty likewise

  std::string flashSize, ramSize, revision;  // as the plug-in found them; empty when it did not
  std::uint64_t elapsedNs = 0;               // of the probe's clock
  std::array<std::uint64_t, kPhaseCount> phaseNs{};
  std::uint64_t hostCalls = 0;
  std::uint64_t wireBytes = 0;                          // written: command words and RAM data
  std::array<std::uint64_t, kPhaseCount> phaseBytes{};  // of these
  std::optional<std::uint64_t> roundTrips;

  [[nodiscard]] bool HasErrorMessages() const;
  // A comparison was made, and the chip is not what the images say.
  [[nodiscard]] bool Differs() const;
  // Null when the images do not touch it.
  [[nodiscard]] RegionRecord* Find(Region region);
  [[nodiscard]] const RegionRecord* Find(Region region) const;
};

// The record of a load that is still to come: what the images touch, nothing of it reached.
LoadRecord PlannedLoad(const LoadPlan& plan, const std::vector<ImageFile>& images,
                       const DeviceDescription& device, const PropertyStore& settings);

// The record of a planned load that found everything on the chip: what the comparison saw.
LoadRecord FoundThere(const LoadRecord& planned, const LoadRecord& comparison);

// Adds what only a look at the chip can tell: bytes changed, and bytes of the images that the load adapted.
void AddContents(LoadRecord& record, const LoadPlan& plan, const MemoryMap& map, const ChipPicture& before,
                 const ChipPicture& after);

}  // namespace host
