#pragma once
#include <cstdint>
#include <span>
#include <string>
namespace host {
std::string WriteIntelHex(std::span<const std::uint8_t>, std::uint32_t);
std::string WriteSRecord(std::span<const std::uint8_t>, std::uint32_t);
}  // namespace host
