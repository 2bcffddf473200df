#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace host {

// Bytes as the text of an image file whose first byte belongs at `address`, for tools that read no raw
// binary. The last byte must lie in the 32-bit address space. 32 bytes a line; no start address, for a region
// has none.

std::string WriteIntelHex(std::span<const std::uint8_t> bytes, std::uint32_t address);
// Records with 32-bit addresses (S3).
std::string WriteSRecord(std::span<const std::uint8_t> bytes, std::uint32_t address);

}  // namespace host
