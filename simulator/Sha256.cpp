#include "Sha256.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace simulator {

std::array<std::uint8_t, 32> Sha256(std::span<const std::uint8_t> bytes) {
  std::array<std::uint8_t, 32> digest{};
  if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), nullptr, EVP_sha256(), nullptr) != 1)
    throw std::runtime_error("SHA-256 is not available");
  return digest;
}

}  // namespace simulator
