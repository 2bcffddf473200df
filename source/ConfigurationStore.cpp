#include "ConfigurationStore.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

void CopyIntoStore(std::vector<std::uint8_t>& store, std::uint32_t base, std::span<const std::uint8_t> data,
                   std::uint32_t address) {
  if (address < base) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "Image data at 0x%08X lies below its region", address);
    throw std::runtime_error(text.data());
  }
  const std::size_t offset = address - base;
  if (offset >= store.size()) return;
  const std::size_t count = std::min(data.size(), store.size() - offset);
  std::copy_n(data.begin(), count, store.begin() + static_cast<std::ptrdiff_t>(offset));
}
