#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "ChipDescription.h"

namespace simulator {

// A firmware image of the simulated security module. 32-bit little-endian words.
//
// Whole form:   0 magic "HSMF" | 1 version and flags | 2 payload bytes | 3 CRC-32 of the payload | payload
// Record chain: 0 magic "HSMR" | 1 bytes of the first record (12) | version and flags | payload bytes |
//               CRC-32 of the payload; then records to the end, each a word with its byte count and its data
// Data that is no whole number of words is followed by zero bytes up to one.
//
// Version and flags: bits 23-16 major, 15-8 minor, 7-0 patch, bit 24 set when the firmware does not start.
struct HsmFirmware {
  std::uint8_t major = 0;
  std::uint8_t minor = 0;
  std::uint8_t patch = 0;
  bool boots = true;
  std::vector<std::uint8_t> payload;
};

constexpr std::uint32_t kHsmWholeMagic = 0x464D'5348;    // "HSMF" in memory
constexpr std::uint32_t kHsmRecordsMagic = 0x524D'5348;  // "HSMR" in memory
constexpr std::uint32_t kHsmFailsToBoot = 0x0100'0000;

// The image in the form that a chip with `kind` takes. `recordBytes` is the payload of one record, at least
// 1; the last one is shorter. Throws std::runtime_error for HsmKind::None, and for recordBytes 0.
std::vector<std::uint8_t> BuildHsmImage(const HsmFirmware& firmware, HsmKind kind, std::uint32_t recordBytes);

}  // namespace simulator
