#pragma once

#include <cstdint>
#include <span>

#include "Chip.h"
#include "ProbeTiming.h"

namespace simulator {

// The chip at the end of a probe's wire: each access first takes its time on the chip's clock, then happens.
// Failures are Chip's; a failed access has taken its time.
class DebugPorts {
 public:
  struct Traffic {
    std::uint64_t roundTrips = 0;
    std::uint64_t words = 0;  // 32-bit transfers on the wire
  };

  // `attached` must outlive this object.
  DebugPorts(Chip& attached, const ProbeTiming& probeTiming) : chip(attached), timing(probeTiming) {}

  // `address` is one of Registers.h; throws std::runtime_error for any other.
  std::uint32_t ReadRegister(std::uint64_t address);
  void WriteRegister(std::uint64_t address, std::uint32_t value);
  // One transfer through the SEC-AP data words, word after word in wire time.
  void WriteTxWords(std::span<const std::uint32_t> words);
  void ReadRxWords(std::span<std::uint32_t> words);
  // One transfer through the AHB-AP, counted in 32-bit words however wide the elements are.
  void ReadMemory(std::uint32_t address, std::span<std::uint8_t> bytes);
  void WriteMemory(std::uint32_t address, std::span<const std::uint8_t> bytes);

  // Connecting or reconnecting any core.
  void Connect();
  void PinReset();
  void Sleep(std::uint32_t milliseconds) { chip.Clock().Advance(milliseconds * kMillisecond); }

  [[nodiscard]] const Traffic& Counted() const { return traffic; }
  Chip& Attached() { return chip; }

 private:
  void TakeTime(std::uint64_t words);

  Chip& chip;
  ProbeTiming timing;
  Traffic traffic;
};

}  // namespace simulator
