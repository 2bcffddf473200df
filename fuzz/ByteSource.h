#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace fuzz {

inline std::string AsText(std::span<const std::uint8_t> bytes) {
  return {bytes.begin(), bytes.end()};
}

// Takes an input apart from its front. An input that has run out gives zeros and empty texts.
class ByteSource {
 public:
  explicit ByteSource(std::span<const std::uint8_t> input) : rest(input) {}

  [[nodiscard]] bool IsEmpty() const { return rest.empty(); }

  std::span<const std::uint8_t> Take(std::size_t most) {
    const auto taken = rest.first(std::min(most, rest.size()));
    rest = rest.subspan(taken.size());
    return taken;
  }
  std::span<const std::uint8_t> Rest() { return Take(rest.size()); }

  std::uint8_t Byte() {
    const auto taken = Take(1);
    return taken.empty() ? std::uint8_t{0} : taken[0];
  }
  // Little-endian.
  std::uint32_t Word() {
    std::uint32_t word = 0;
    for (unsigned shift = 0; shift < 32; shift += 8) word |= std::uint32_t{Byte()} << shift;
    return word;
  }
  // A byte with the length, then the characters.
  std::string Text() { return AsText(Take(Byte())); }

 private:
  std::span<const std::uint8_t> rest;
};

}  // namespace fuzz
