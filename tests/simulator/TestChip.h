#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "simulator/Chip.h"

namespace simulator {

using Words = std::vector<std::uint32_t>;
using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t kKey = 0x5C17'E94B;
constexpr std::uint8_t kOpen = 0x5A;
constexpr std::uint8_t kClosed = 0x00;
constexpr std::uint8_t kPassword = 0xA5;

// A small chip with everything: 300 sectors of 64 bytes, so that all three retain words reach sectors and a
// sector is 16 words on the wire.
ChipDescription SmallChip();

// A CCFG of SmallChip() whose CRC words are right: retain words, user record bytes 0x11, debug authorization
// `type`, identifier 0x0123456789ABCDEF, and the hash of the password "open sesame!" (three words).
Bytes ValidCcfg(std::uint8_t type, const Words& retain = {0, 0, 0});
const Words& PasswordWords();

// Puts the right CRC word behind `range`.
void SealCrc(Bytes& sector, ByteRange range);

Words AsWords(std::span<const std::uint8_t> bytes);
Words Joined(Words head, std::span<const std::uint32_t> tail);

// "SECAP_TXCTL", "CFGAP_DEVICESTATUS", ...
Register RegisterNamed(std::string_view name);

// A new chip, which has booted into SACI, at the end of a fast probe, driven as a debugger drives it, but one
// literal word at a time. Each access first takes 0.15 ms, and 4.6 us a word, then happens.
class TestChip {
 public:
  explicit TestChip(const ChipDescription& description = SmallChip(), const CostModel& costs = {});

  // Header with TX_CMD_START, the other words without.
  void Send(const Words& command);
  // The next answer: header, then as many words as it announces. Waits up to ten seconds; none: no answer.
  Words Answer();
  Words Command(const Words& command);
  std::uint32_t Read(const char* registerName);
  void Write(const char* registerName, std::uint32_t value);
  // The chip works on the first word while the last is still on the wire.
  void WriteTxWords(std::span<const std::uint32_t> words);
  void ReadMemory(std::uint32_t address, std::span<std::uint8_t> bytes);
  void WriteMemory(std::uint32_t address, std::span<const std::uint8_t> bytes);
  void PinReset();
  void Sleep(std::uint32_t milliseconds) { chip.Clock().Advance(milliseconds * kMillisecond); }
  // Boot status code.
  std::uint32_t BootStatus() { return Read("CFGAP_DEVICESTATUS") >> 8 & 0xFF; }
  bool AhbEnabled() { return (Read("CFGAP_DEVICESTATUS") >> 24 & 1) != 0; }
  // Reset request, and the boot time of the ROM.
  void EnterSaci();
  // A new chip with these contents, in SACI.
  void Become(const ChipState& state);
  [[nodiscard]] ChipState Contents() const { return chip.State(); }
  Nanoseconds Now() { return chip.Clock().Now(); }

  Chip chip;

 private:
  void TakeTime(std::size_t words);
};

}  // namespace simulator
