#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace host {

// SHA-256 in hexadecimal digits, as sha256sum prints it.
[[nodiscard]] std::string Sha256(std::span<const std::uint8_t> bytes);

}  // namespace host
