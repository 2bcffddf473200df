#include "DebugPorts.h"

#include <cstdio>
#include <stdexcept>

namespace simulator {
namespace {

Register Require(std::uint64_t address) {
  if (const auto found = RegisterAt(address)) return *found;
  char text[64];
  std::snprintf(text, sizeof text, "No register at address 0x%08llX",
                static_cast<unsigned long long>(address));
  throw std::runtime_error(text);
}

}  // namespace

std::uint32_t DebugPorts::ReadRegister(std::uint64_t address) {
  const Register which = Require(address);
  TakeTime(1);
  return chip.ReadRegister(which);
}

void DebugPorts::WriteRegister(std::uint64_t address, std::uint32_t value) {
  const Register which = Require(address);
  TakeTime(1);
  chip.WriteRegister(which, value);
}

// The words of a burst reach the chip one by one: it works on the first while the last is still on the wire.
void DebugPorts::WriteTxWords(std::span<const std::uint32_t> words) {
  TakeTime(0);
  const Nanoseconds start = chip.Clock().Now();
  for (std::size_t i = 0; i < words.size(); ++i) {
    chip.Clock().Advance(start + timing.WireTime(i + 1) - chip.Clock().Now());
    ++traffic.words;
    chip.WriteRegister(Register::SecApTxData, words[i]);
  }
}

void DebugPorts::ReadRxWords(std::span<std::uint32_t> words) {
  TakeTime(0);
  const Nanoseconds start = chip.Clock().Now();
  for (std::size_t i = 0; i < words.size(); ++i) {
    chip.Clock().Advance(start + timing.WireTime(i + 1) - chip.Clock().Now());
    ++traffic.words;
    words[i] = chip.ReadRegister(Register::SecApRxData);
  }
}

void DebugPorts::ReadMemory(std::uint32_t address, std::span<std::uint8_t> bytes) {
  TakeTime((bytes.size() + 3) / 4);
  chip.ReadMemory(address, bytes);
}

void DebugPorts::WriteMemory(std::uint32_t address, std::span<const std::uint8_t> bytes) {
  TakeTime((bytes.size() + 3) / 4);
  chip.WriteMemory(address, bytes);
}

void DebugPorts::Connect() {
  ++traffic.roundTrips;
  chip.Clock().Advance(timing.connect);
}

void DebugPorts::PinReset() {
  ++traffic.roundTrips;
  chip.Clock().Advance(timing.resetPulse);
  chip.PinReset();
}

void DebugPorts::TakeTime(std::uint64_t words) {
  ++traffic.roundTrips;
  traffic.words += words;
  chip.Clock().Advance(timing.roundTrip + timing.WireTime(words));
}

}  // namespace simulator
