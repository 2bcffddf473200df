#include "MemAp.h"

#include <array>
#include <span>
#include <stdexcept>

namespace simulator {
namespace {

constexpr std::uint8_t kCsw = 0x00;
constexpr std::uint8_t kTar = 0x04;
constexpr std::uint8_t kDrw = 0x0C;
constexpr std::uint8_t kBankedBegin = 0x10;
constexpr std::uint8_t kBankedEnd = 0x20;
constexpr std::uint8_t kBase = 0xF8;
constexpr std::uint8_t kIdr = 0xFC;

constexpr std::uint32_t kWordAccess = 2;       // CSW bits 2-0
constexpr std::uint32_t kIncrement = 1U << 4;  // CSW bits 5-4: one element; packed ones are not offered
constexpr std::uint32_t kDeviceEnabled = 1U << 6;
constexpr std::uint32_t kProtection = 0xFF00'0000;
constexpr std::uint32_t kIncrementedBits = 0x3FF;
constexpr std::uint32_t kNoDebugComponents = 2;

bool IsBanked(std::uint8_t offset) {
  return offset >= kBankedBegin && offset < kBankedEnd;
}

}  // namespace

std::optional<std::uint32_t> MemAp::Read(std::uint8_t offset) {
  if (IsBanked(offset)) return ReadBus(BankedAddress(offset));
  switch (offset) {
    case kCsw: return control | (IsEnabled() ? kDeviceEnabled : 0);
    case kTar: return address;
    case kDrw: {
      const auto value = ReadBus(address);
      if (value) Increment();
      return value;
    }
    case kBase: return kNoDebugComponents;
    case kIdr: return idr;
    default: return 0;  // CFG, too: little-endian, 32-bit addresses
  }
}

bool MemAp::Write(std::uint8_t offset, std::uint32_t value) {
  if (IsBanked(offset)) return WriteBus(BankedAddress(offset), value);
  switch (offset) {
    case kCsw: {
      // What the port does not know reads back as something else, which is how debuggers find out.
      const std::uint32_t size = (value & 7) <= kWordAccess ? value & 7 : kWordAccess;
      const std::uint32_t increment = (value & 0x30) == kIncrement ? kIncrement : 0;
      control = (value & kProtection) | increment | size;
      return true;
    }
    case kTar: address = value; return true;
    case kDrw:
      if (!WriteBus(address, value)) return false;
      Increment();
      return true;
    default: return true;
  }
}

void MemAp::Reset() {
  control = kWordAccess;
  address = 0;
}

std::uint32_t MemAp::BankedAddress(std::uint8_t offset) const {
  return (address & ~0xFU) | (offset & 0xCU);
}

std::optional<std::uint32_t> MemAp::ReadBus(std::uint32_t at) {
  if (at % Size() != 0) return std::nullopt;
  std::array<std::uint8_t, 4> lanes{};
  try {
    chip.ReadMemory(at, std::span(lanes).subspan(at % 4, Size()));
  } catch (const std::runtime_error&) {
    return std::nullopt;
  }
  return lanes[0] | std::uint32_t{lanes[1]} << 8 | std::uint32_t{lanes[2]} << 16 |
         std::uint32_t{lanes[3]} << 24;
}

bool MemAp::WriteBus(std::uint32_t at, std::uint32_t value) {
  if (at % Size() != 0) return false;
  std::array<std::uint8_t, 4> lanes{};
  for (std::size_t i = 0; i < lanes.size(); ++i) lanes[i] = static_cast<std::uint8_t>(value >> (8 * i));
  try {
    chip.WriteMemory(at, std::span(lanes).subspan(at % 4, Size()));
  } catch (const std::runtime_error&) {
    return false;
  }
  return true;
}

void MemAp::Increment() {
  if ((control & kIncrement) == 0) return;
  address = (address & ~kIncrementedBits) | ((address + Size()) & kIncrementedBits);
}

bool MemAp::IsEnabled() {
  constexpr std::uint32_t kAhbApEnabled = 1U << 24;
  return chip.IsPowered() && (chip.ReadRegister(Register::CfgApDeviceStatus) & kAhbApEnabled) != 0;
}

}  // namespace simulator
