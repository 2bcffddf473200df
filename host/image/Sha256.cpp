#include "host/image/Sha256.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <openssl/sha.h>

#include <array>

namespace host {

std::string Sha256(std::span<const std::uint8_t> bytes) {
  std::array<std::uint8_t, SHA256_DIGEST_LENGTH> digest{};
  SHA256(bytes.data(), bytes.size(), digest.data());
  return fmt::format("{:02x}", fmt::join(digest, ""));
}

}  // namespace host
