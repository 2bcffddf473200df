#pragma once

#include <string>

#include "host/device/MemoryMap.h"

namespace host::gdb {

// The documents by which a client learns what it is connected to.

// Every memory of the device with its unit of erasing, and each again where its alias is: what is in no
// memory of this list, a client does not load.
std::string MemoryMapXml(const MemoryMap& map);

// The least that clients take for a Cortex-M: its sixteen registers and xpsr, four bytes each.
inline constexpr unsigned kRegisters = 17;
inline constexpr unsigned kProgramCounter = 15;
inline constexpr unsigned kStatusRegister = 16;
std::string TargetXml();

}  // namespace host::gdb
