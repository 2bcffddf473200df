#pragma once

#include <array>
#include <cstdint>
#include <span>

namespace simulator {

// Throws std::runtime_error when the crypto library cannot.
std::array<std::uint8_t, 32> Sha256(std::span<const std::uint8_t> bytes);

}  // namespace simulator
