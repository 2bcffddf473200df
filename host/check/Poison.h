#pragma once

#include <cstdint>

#include "host/plugin/HostServices.h"

namespace host {

// Fills the stack below the caller, and the memory that the next allocations will get, with a byte: who then
// uses something that nobody has set gets this byte.
void Poison(std::uint8_t byte);

// Does so after every call of a host's functions from now on, with the same byte. One host a process.
void PoisonAfterCalls(HostServices& services, std::uint8_t byte);

}  // namespace host
