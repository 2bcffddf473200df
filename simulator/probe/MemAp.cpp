#include "MemAp.h"

#include <algorithm>
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

std::uint32_t MemAp::Read(std::uint8_t offset) {
  if (IsBanked(offset)) return ReadBus(BankedAddress(offset));
  switch (offset) {
    case kCsw: return control | (IsEnabled() ? kDeviceEnabled : 0);
    case kTar: return address;
    case kDrw: {
      const std::uint32_t value = ReadBus(address);
      Increment();
      return value;
    }
    case kBase: return kNoDebugComponents;
    case kIdrOffset: return idr;
    default: return 0;  // CFG, too: little-endian, 32-bit addresses
  }
}

void MemAp::Write(std::uint8_t offset, std::uint32_t value) {
  if (IsBanked(offset)) return WriteBus(BankedAddress(offset), value);
  switch (offset) {
    case kCsw: {
      // What the port does not know reads back as something else, which is how debuggers find out.
      const std::uint32_t size = std::min(value & 7, kWordAccess);
      const std::uint32_t increment = (value & 0x30) == kIncrement ? kIncrement : 0;
      control = (value & kProtection) | increment | size;
      return;
    }
    case kTar: address = value; return;
    case kDrw:
      WriteBus(address, value);
      Increment();
      return;
    default: return;
  }
}

void MemAp::Reset() {
  control = kWordAccess;
  address = 0;
}

std::uint32_t MemAp::BankedAddress(std::uint8_t offset) const {
  return (address & ~0xFU) | (offset & 0xCU);
}

std::uint32_t MemAp::ReadBus(std::uint32_t at) {
  RequireAligned(at);
  std::array<std::uint8_t, 4> lanes{};
  chip.ReadMemory(at, std::span(lanes).subspan(at % 4, Size()));
  return lanes[0] | std::uint32_t{lanes[1]} << 8 | std::uint32_t{lanes[2]} << 16 |
         std::uint32_t{lanes[3]} << 24;
}

void MemAp::WriteBus(std::uint32_t at, std::uint32_t value) {
  RequireAligned(at);
  std::array<std::uint8_t, 4> lanes{};
  for (std::size_t i = 0; i < lanes.size(); ++i) lanes[i] = static_cast<std::uint8_t>(value >> (8 * i));
  chip.WriteMemory(at, std::span(lanes).subspan(at % 4, Size()));
}

void MemAp::RequireAligned(std::uint32_t at) const {
  if (at % Size() != 0) throw std::runtime_error("The address does not suit the size of the access");
}

void MemAp::Increment() {
  if ((control & kIncrement) == 0) return;
  address = (address & ~kIncrementedBits) | ((address + Size()) & kIncrementedBits);
}

bool MemAp::IsEnabled() {
  constexpr std::uint32_t kAhbApEnabled = 1U << 24;
  return (chip.ReadRegister(Register::CfgApDeviceStatus) & kAhbApEnabled) != 0;
}

}  // namespace simulator
