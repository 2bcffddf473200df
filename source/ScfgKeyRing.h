#pragma once

#include <cstdint>
#include <vector>

// Cuts the unused entries off the end of the key ring that ends the SCFG, from the first unused one on; at
// least one entry stays. A copy too short to hold the whole ring is left as it is.
void ReduceScfgKeyRing(std::vector<std::uint8_t>& scfg);
