#include "ConfigurationStore.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>
#include <string>

namespace {

[[noreturn]] void Refuse(std::uint32_t address, char const* why) {
  std::array<char, 16> number{};
  std::snprintf(number.data(), number.size(), "0x%08X", address);
  throw std::runtime_error(std::string("Image data at ") + number.data() + why);
}

}  // namespace

void CopyIntoStore(std::vector<std::uint8_t>& store, std::uint32_t base, std::span<std::uint8_t const> data,
                   std::uint32_t address) {
  // Stores are sized when a load first touches flash. Bytes taken before that would be lost, and the end of
  // the load would program a sector of zeros in their place: a CCFG that locks the chip.
  if (store.empty()) Refuse(address, " came before the load had opened its region");
  if (address < base) Refuse(address, " lies below its region");
  std::size_t const offset = address - base;
  if (offset >= store.size()) return;
  std::size_t const count = std::min(data.size(), store.size() - offset);
  std::copy_n(data.begin(), count, store.begin() + static_cast<std::ptrdiff_t>(offset));
}
