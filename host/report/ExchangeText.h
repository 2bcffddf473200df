#pragma once

#include <cstdint>
#include <string>

#include "host/load/SessionStory.h"

namespace host {

// How much is told. Brief: without the CRCs of a comparison that found all equal.
enum class Detail { Brief, Whole };

// A command, what it was told, and what came of it, in words: "program MAIN, sectors 32..63 at 0x00010000:
// success". `sectorSize` is 0 where it is not known.
std::string ExchangeText(const ToldExchange& told, std::uint32_t sectorSize, Detail detail);

}  // namespace host
