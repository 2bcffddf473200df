#pragma once

#include <cstdint>
#include <span>
#include <vector>

// Copies what of `data` fits into a store whose first byte stands for address `base`; what lies beyond the
// store's end is dropped. Throws std::runtime_error, with the store unchanged, when `address` lies below
// it.
void CopyIntoStore(std::vector<std::uint8_t>& store, std::uint32_t base, std::span<const std::uint8_t> data,
                   std::uint32_t address);
