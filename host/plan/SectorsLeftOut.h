#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/device/PropertyStore.h"
#include "host/plan/LoadPlan.h"

namespace host {

// The MAIN sectors that settings leave out of a load. The plug-in reads these settings after the erase; here
// they are read as it reads them, with what it would refuse and what it takes for something unexpected.

struct SectorList {
  std::vector<bool> isListed;  // one entry a sector
  std::string error;           // why the text would be refused; empty for a good one
  std::string oddity;          // what of it does not mean what it looks like; empty when all does
};
// "0,4-7": decimal, white space anywhere.
SectorList ReadSectorList(std::string_view text, std::size_t sectorCount);

struct FillByte {
  std::uint8_t value = 0;
  std::string error, oddity;  // as above
};
// "0xFF".
FillByte ReadFillByte(const std::string& text);

// Of the MAIN sectors that a plan touches.
struct SectorsLeftOut {
  std::size_t touched = 0;
  std::size_t listed = 0;  // by FlashPages
  std::size_t filled = 0;  // by FlashPagesFilledWithValue, and not listed

  [[nodiscard]] std::size_t Count() const { return listed + filled; }
  [[nodiscard]] std::string Settings()
      const;  // those that leave any out: "FlashPages and FlashPagesFilledWith"
};
// A setting that is off, or that the plug-in would refuse, leaves out nothing.
SectorsLeftOut SectorsLeftOutOf(const LoadPlan& plan, const MemoryMap& map, const PropertyStore& settings);

}  // namespace host
