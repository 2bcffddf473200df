#pragma once

#include "VirtualClock.h"

namespace simulator {

// How long the chip takes, in virtual time. Figures are ours: round numbers of a fast 2 KiB-sector flash
// behind a 125 MHz bus. Tests change single ones to make a step visible.
struct CostModel {
  Nanoseconds boot = 5 * kMillisecond;             // reset to SACI, or to the application
  Nanoseconds bootCode = 2 * kMillisecond;         // leaving SACI to the probe loop or the application
  Nanoseconds command = 20 * kMicrosecond;         // last word taken to the start of execution
  Nanoseconds programSector = 140 * kMicrosecond;  // one MAIN sector; parts of a sector in proportion
  Nanoseconds programConfig = 500 * kMicrosecond;  // CCFG, its user record, SCFG, OTP: each one command
  Nanoseconds chipErase = 40 * kMillisecond;       // however many sectors are retained
  Nanoseconds crcPerByte = 2;                      // 32 bits a clock at 125 MHz; blank checks the same
  Nanoseconds passwordHash = 50 * kMicrosecond;    // SHA-256 of the submitted password
  Nanoseconds hsmPrepare = 1 * kMillisecond;       // HSM made ready to take an image
  Nanoseconds hsmRecord = 1 * kMillisecond;        // one record of an image worked off
  Nanoseconds hsmUpdate = 80 * kMillisecond;       // verification, installation and start of the image
};

}  // namespace simulator
