#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/device/FlashProperties.h"
#include "host/image/ImageFile.h"

namespace host {

// What one WriteDataToFlash call carries.
struct ImageBlock {
  Region region = Region::Outside;
  std::uint32_t address = 0;
  std::vector<std::uint8_t> data;   // never empty; lies in one region whole
  std::vector<AddressRange> given;  // what the images gave of it, ascending; the rest is 0xFF fill

  [[nodiscard]] std::size_t ImageBytes() const;  // the sum of `given`
};

struct LoadPlan {
  std::vector<ImageBlock> blocks;  // ascending addresses

  [[nodiscard]] bool Has(Region region) const;
  [[nodiscard]] std::size_t ImageBytes(Region region) const;
  [[nodiscard]] std::size_t TotalBytes() const;  // fill included: what crosses to the plug-in
};

// Whether the settings let the plug-in cut a block into pieces, each a transfer of its own: sectors listed
// to be skipped, sectors skipped by their content, or MAIN sectors retained by the erase.
enum class PluginCuts { No, Yes };

// `valueOf` gives the value that a property has for the load, empty for one that the device does not have.
PluginCuts PluginCutsUnder(const std::function<std::string(std::string_view)>& valueOf);

// Cuts the images into the blocks of one load: sorted, merged, cut at the borders of all regions; no two
// blocks in one MAIN sector; CCFG, SCFG and OTP as one block each that is the whole region, except that
// images which hold nothing of the CCFG but its user record give a block of just that record. Bytes that no
// image gives are 0xFF. Addresses in the device's alias come out as plain ones. Throws InputError when images
// overlap, naming both and the range.
LoadPlan PlanLoad(std::span<const ImageFile> images, const MemoryMap& map, PluginCuts cuts);

// The most MAIN sectors that block number `index` of a load (0 for its first MAIN block) may hold.
std::size_t MaxSectorsOfBlock(std::size_t index, PluginCuts cuts);

}  // namespace host
