#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/device/MemoryMap.h"

namespace host {

// What one WriteDataToFlash call carries.
struct ImageBlock {
  Region region = Region::Outside;
  std::uint32_t address = 0;
  std::vector<std::uint8_t> data;   // never empty; lies in one region whole
  std::vector<AddressRange> given;  // what the images gave of it, ascending; the rest is 0xFF fill

  [[nodiscard]] std::uint64_t End() const { return std::uint64_t{address} + data.size(); }
  [[nodiscard]] AddressRange Range() const { return {address, static_cast<std::uint32_t>(data.size())}; }
  [[nodiscard]] std::size_t ImageBytes() const;  // the sum of `given`
  // Appends what an image gives at `at`, which is not before the block's end; a gap is filled.
  void Append(std::uint32_t at, std::span<const std::uint8_t> bytes);
  void FillUpTo(std::uint64_t end);
};

// Bytes of one image that do not all lie in a memory.
struct StrayRange {
  std::string image;              // its name
  AddressRange range;             // in one piece, with what of it does lie in a memory
  Region past = Region::Outside;  // the memory that it runs out of, if it begins in one
};

struct LoadPlan {
  std::vector<ImageBlock> blocks;  // ascending addresses
  std::vector<StrayRange> strays;

  [[nodiscard]] bool Has(Region region) const;
  // The first block of that region; null without one.
  [[nodiscard]] const ImageBlock* Find(Region region) const;
  [[nodiscard]] std::size_t ImageBytes(Region region) const;
  [[nodiscard]] std::size_t TotalBytes() const;  // fill included: what crosses to the plug-in
};

// A run of what the images give, as a person would count them: adjoining MAIN sectors are one range however
// many blocks carry them, and a configuration region is one.
struct PlannedRange {
  Region region;
  std::uint32_t address;    // of the first byte that an image gives
  std::uint64_t end;        // one past the last
  std::size_t bytes;        // that the images give in between
  std::size_t sectors = 0;  // MAIN sectors touched; 0 in other regions
  bool operator==(const PlannedRange&) const = default;
};
std::vector<PlannedRange> RangesOf(const LoadPlan& plan, std::uint32_t sectorSize);

}  // namespace host
