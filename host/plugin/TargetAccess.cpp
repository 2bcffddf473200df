#include "host/plugin/TargetAccess.h"

#include <fmt/format.h>

#include <cstring>
#include <optional>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

namespace host {

namespace {

constexpr int kPinReset = 0;

// On the security access port, address 0 of this page is the data register.
constexpr int kSecureDataPage = 1;

std::uint32_t To32(Debugger::Address address) {
  if (!Debugger::Is32Bit(address))
    throw std::runtime_error(fmt::format("address 0x{:x} is wider than 32 bits", Extract(address)));
  return static_cast<std::uint32_t>(Extract(address));
}

void RequireSecureData(const TargetAccess::Range& range) {
  if (Extract(range.address) == 0 && range.page == kSecureDataPage &&
      range.elementSize == sizeof(std::uint32_t))
    return;
  throw std::runtime_error(
      fmt::format("SEC_AP has 32-bit words at address 0 of page {} only, not elements of {} bytes at "
                  "0x{:08x} of page {}",
                  kSecureDataPage, range.elementSize, Extract(range.address), range.page));
}

}  // namespace

void TargetAccess::Select(std::string_view coreName) {
  const std::optional<Core> core = FindCore(coreName);
  if (!core) throw std::runtime_error(fmt::format("there is no core \"{}\"", coreName));
  current = *core;
}

void TargetAccess::Connect() {
  Forget(current);
  probe.Connect(current);
  connected[Index(current)] = true;
}

void TargetAccess::Disconnect() {
  const bool wasConnected = IsConnected(current);
  Forget(current);
  if (wasConnected) probe.Disconnect(current);
}

void TargetAccess::Reset(int kind) {
  if (kind != kPinReset) throw std::runtime_error(fmt::format("reset kind {} is not offered", kind));
  Forget(Core::DebugPort);
  probe.PinReset();
}

void TargetAccess::Forget(Core core) {
  connected[Index(core)] = false;
  if (core == Core::DebugPort) connected.fill(false);
}

void TargetAccess::RequireConnected() const {
  if (!IsConnected(current)) throw std::runtime_error(fmt::format("{} is not connected", CoreName(current)));
}

std::uint32_t TargetAccess::FindRegister(std::string_view name) const {
  const std::optional<std::uint32_t> address = probe.FindRegister(name);
  if (!address) throw std::runtime_error(fmt::format("there is no register \"{}\"", name));
  return *address;
}

std::uint32_t TargetAccess::ReadRegister(Debugger::Address address) {
  RequireConnected();
  return probe.ReadRegister(To32(address));
}

void TargetAccess::WriteRegister(Debugger::Address address, unsigned long long value) {
  RequireConnected();
  if (value > 0xFFFFFFFF)
    throw std::runtime_error(fmt::format("register value 0x{:x} is wider than 32 bits", value));
  probe.WriteRegister(To32(address), static_cast<std::uint32_t>(value));
}

std::size_t TargetAccess::Range::Bytes() const {
  if (elementSize != 1 && elementSize != 2 && elementSize != 4)
    throw std::runtime_error(fmt::format("access width of {} bytes is not offered", elementSize));
  return count * elementSize;
}

void TargetAccess::Read(const Range& range, void* elements) {
  RequireConnected();
  if (current != Core::SecureAp) {
    probe.ReadMemory(To32(range.address), {static_cast<std::uint8_t*>(elements), range.Bytes()},
                     range.elementSize);
    return;
  }
  RequireSecureData(range);
  std::vector<std::uint32_t> words(range.count);
  probe.PopWords(words);
  std::memcpy(elements, words.data(), range.Bytes());
}

void TargetAccess::Write(const Range& range, const void* elements) {
  RequireConnected();
  if (current != Core::SecureAp) {
    probe.WriteMemory(To32(range.address), {static_cast<const std::uint8_t*>(elements), range.Bytes()},
                      range.elementSize);
    return;
  }
  RequireSecureData(range);
  std::vector<std::uint32_t> words(range.count);
  std::memcpy(words.data(), elements, range.Bytes());
  probe.PushWords(words);
}

}  // namespace host
