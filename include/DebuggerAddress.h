#pragma once

#include <concepts>
#include <type_traits>

namespace Debugger {

// The host's address value: 64 bits wide, whatever the target. Passed by value, in a register.
class Address {
 public:
  Address() = default;
  Address(unsigned long long address) : value(address) {}
  Address(unsigned int address) : value(address) {}

  friend unsigned long long Extract(const Address& address) { return address.value; }

 private:
  unsigned long long value = 0;
};
static_assert(sizeof(Address) == 8 && alignof(Address) == 8);
static_assert(std::is_trivially_copyable_v<Address> && std::is_standard_layout_v<Address>);

unsigned long long Extract(const Address& address);

inline bool Is32Bit(const Address& address) {
  return Extract(address) < 0x1'0000'0000;
}

template <std::integral Integer>
bool operator<(const Address& address, const Integer& value) {
  return Extract(address) < static_cast<unsigned long long>(value);
}

template <std::integral Integer>
bool operator>=(const Integer& value, const Address& address) {
  return static_cast<unsigned long long>(value) >= Extract(address);
}

}  // namespace Debugger
