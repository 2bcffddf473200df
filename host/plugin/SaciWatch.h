#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "host/device/MemoryMap.h"
#include "host/plugin/HostCall.h"
#include "host/plugin/SaciNames.h"

namespace host {

// One command to the ROM and what came back, as docs/wire-format.md has it.
struct SaciExchange {
  std::uint8_t command = 0;
  std::uint8_t sequence = 0;
  std::uint16_t argument = 0;                 // bits 16 to 31 of the header
  std::array<std::uint32_t, 4> parameters{};  // the words after the header; none of a password's are kept
  std::uint32_t dataBytes = 0;                // of the data behind the command's own words
  std::uint32_t sectorsAcknowledged = 0;      // of a pipelined transfer; a refusal is of the next one
  std::optional<std::uint8_t> result;         // as the last answer's header gives it; none: no answer
  bool isAnswerWrong = false;                 // by its id or its number
  std::vector<std::uint32_t> words;           // of data in the answer
  std::size_t wordsMissing = 0;               // that it announced and that nobody has read
  std::uint64_t firstCall = 0;                // of the host, by number
  std::uint64_t lastCall = 0;
  std::uint64_t beginNs = 0;  // of the probe's clock
  std::uint64_t endNs = 0;

  // Everything but a whole answer that says success, where one is due.
  [[nodiscard]] bool HasFailed() const;
  // The whole answer's result.
  [[nodiscard]] std::optional<std::uint8_t> Result() const;
  // What of MAIN flash the command is about; nothing for all other commands.
  [[nodiscard]] AddressRange MainRange() const;
  // Whether the command compares anything with a CRC-32; a blank check does not.
  [[nodiscard]] bool Compares() const;
};

// A read or write of the target's memory, past the ROM.
struct MemoryAccess {
  AddressRange range;
  bool isWrite = false;
  bool hasFailed = false;
  std::optional<bool> equalsWritten;  // of a read that comes right after a write of the same range
  std::uint64_t call = 0;
};

struct TargetReset {
  bool intoSaci = false;  // asked for through the security access port; else by the reset pin
  std::uint64_t call = 0;
  std::uint64_t ns = 0;
};

// Reads along what a plug-in and the chip's ROM say to each other and so knows, for any plug-in, what was
// done to the chip and how it went. Takes nonsense for what it is: no call can make it fail, and what it
// keeps is bounded.
class SaciWatch final : public HostCallObserver {
 public:
  void Saw(const HostCall& call, std::uint64_t elapsedNs) override;

  [[nodiscard]] Phase Present() const { return phase; }
  [[nodiscard]] std::uint64_t NsOf(Phase wanted) const { return phaseNs[static_cast<std::size_t>(wanted)]; }

  // In the order in which they began.
  [[nodiscard]] std::span<const SaciExchange> Exchanges() const { return exchanges; }
  [[nodiscard]] std::span<const MemoryAccess> Accesses() const { return accesses; }
  [[nodiscard]] std::span<const TargetReset> Resets() const { return resets; }
  // More happened than is kept: the lists lack their ends.
  [[nodiscard]] bool IsIncomplete() const { return isIncomplete; }
  // Command words and memory written.
  [[nodiscard]] std::uint64_t BytesWritten() const { return bytesWritten; }
  [[nodiscard]] std::uint64_t BytesOf(Phase wanted) const {
    return phaseBytes[static_cast<std::size_t>(wanted)];
  }

 private:
  void LearnRegister(std::string_view name, std::uint64_t address);
  void WroteRegister(const HostCall& call, std::uint64_t ns);
  void MovedWords(const HostCall& call, bool isWrite, std::uint64_t ns);
  void Begin(std::uint32_t header, const HostCall& call, std::uint64_t ns);
  void Sent(std::uint32_t word);
  void Received(std::uint32_t word);
  void MovedMemory(const HostCall& call, bool isWrite);
  void Reset(bool intoSaci, const HostCall& call, std::uint64_t ns);
  void CountWritten(std::uint64_t bytes);
  template <typename Entry>
  bool Keep(std::vector<Entry>& list, Entry entry);

  std::optional<std::uint64_t> txControl, resetControl;  // addresses, once the plug-in has asked for them
  bool startFlag = false;
  bool isOpen = false;            // the last exchange may still get words or answers
  std::size_t wordsSent = 0;      // of the open one, after the header
  std::size_t wordsExpected = 0;  // of the answer that is being read, asked for or not
  std::vector<std::uint8_t> lastWritten;
  Phase phase = Phase::Identify;
  std::optional<std::uint64_t> lastNs;
  std::array<std::uint64_t, kPhaseCount> phaseNs{};
  std::vector<SaciExchange> exchanges;
  std::vector<MemoryAccess> accesses;
  std::vector<TargetReset> resets;
  std::uint64_t bytesWritten = 0;
  std::array<std::uint64_t, kPhaseCount> phaseBytes{};  // of these
  bool isIncomplete = false;
};

}  // namespace host
