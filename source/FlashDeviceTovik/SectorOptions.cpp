#include "FlashDeviceTovik.h"

bool FlashDeviceTovik::IsSkipSpecificSectorsOptionEnabled() const {
  return GetProperty<bool>("FlashPageToggle");
}

SectorMask FlashDeviceTovik::ConvertRangeToBoolVector(const std::string& property) const {
  return ParseSkippedSectors(GetProperty<std::string>(property), identity.mainSectorCount);
}

std::vector<std::string> FlashDeviceTovik::InterpretRangeField(const std::string& property,
                                                               bool value) const {
  return ConvertToAllowedSectorRanges(ConvertRangeToBoolVector(property), value);
}

bool FlashDeviceTovik::IsSkipSectorsFilledWithOptionEnabledAndValid() {
  if (!GetProperty<bool>("FlashPagesFilledWith")) return false;
  load.fillValue = ParseFillValue(GetProperty<std::string>("FlashPagesFilledWithValue"));
  return true;
}
