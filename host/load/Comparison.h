#pragma once

#include <string>
#include <vector>

#include "host/load/LoadSession.h"

namespace host {

// A verification-only load of `plan`, whatever the settings say; they are afterwards as before. The plug-in
// resets the chip for it and leaves it in the ROM's command mode; no memory of the chip changes.
LoadRecord CompareWithChip(const LoadTarget& target, const LoadPlan& plan);

// Whether a load of `plan` would leave the chip's regions as they are.
struct AlreadyOnChip {
  bool isEqual = false;                  // everything that a load would program was compared, and is equal
  std::vector<std::string> notCompared;  // what no comparison reaches, a line each; then nothing was compared
  LoadRecord record;                     // of the comparison
};

// Compares the chip with what a load would program there. The CRC words of CCFG and SCFG are no part of it: a
// load may set them. What the ROM cannot compare, OTP, RAM, the user record and the SCFG beyond its CRC, is
// told, and the chip is then left alone. Sectors that only the images lack are not looked at.
AlreadyOnChip IsAlreadyOnChip(const LoadTarget& target, const LoadPlan& plan);

}  // namespace host
