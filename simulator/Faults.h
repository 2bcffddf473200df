#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace simulator {

// Faults asked for, in one line of text: entries joined by commas, each a list of pieces joined by colons.
// Numbers are decimal or 0x-hexadecimal.
//
//   saci:COMMAND[:nth=N]:ACTION   answers to COMMAND, an id or * for all. With nth only the N-th such answer
//                                 (from 1), else every one. A pipelined transfer answers once a sector.
//       result=N                  the command is not carried out and answers with result N
//       lost                      carried out, never answered
//       late=MS                   carried out, answered MS milliseconds later than usual
//       wrong-id                  the answer names another command (all bits of the id inverted)
//       wrong-seq                 the answer bears the next sequence number
//       count=N                   the answer claims N data words (what is missing reads as 0)
//       hang                      the ROM stops at this command: no answer, and it takes no word until a
//       reset
//   reset-misses-saci[:nth=N]     the SEC-AP reset request starts the application instead of SACI
//   cell:ADDRESS                  the flash byte at ADDRESS keeps its value when it is programmed
//   ram:ADDRESS                   the RAM byte at ADDRESS reads back with its lowest bit inverted
//   power:after=N                 power fails when the N-th flash word (from 1) has been written; the chip
//                                 answers nothing from then on until a power cycle
//   hsm:status=N                  the security module reports update status N
//   wire[:nth=N]:ACTION           accesses of the debug port to an access port and to RDBUFF, counted without
//                                 those that were answered WAIT
//       wait[=COUNT]              COUNT answers of WAIT before the N-th (or next) access, or without end
//       fault                     the N-th access (without nth, every one) fails with STICKYERR
//   packet:N:ACTION               the N-th packet to the probe
//       lost                      executed, never answered
//       short                     answered with half of the answer
//       unplugged                 the probe is gone before it
struct SaciFault {
  enum class Action : std::uint8_t { Result, Lost, Late, WrongId, WrongSequence, Count, Hang };
  std::optional<std::uint8_t> command;  // none: every command
  std::uint32_t nth = 0;                // 0: every answer
  Action action = Action::Lost;
  std::uint32_t value = 0;  // result code, milliseconds or data words
  std::uint32_t seen = 0;   // answers that this fault was held against so far
};

class Faults {
 public:
  // Adds the faults of `text`; an empty text adds none. Throws std::runtime_error naming the piece that is
  // not understood, and then adds nothing.
  void Add(std::string_view text);

  // The fault of the next answer to `command`, if any. Counts the answer; the first fault that fits wins.
  std::optional<SaciFault> NextAnswer(std::uint8_t command);
  // Whether the reset request that is being made misses SACI. Counts the request.
  bool NextResetMisses();
  [[nodiscard]] bool CellFails(std::uint32_t address) const;
  [[nodiscard]] bool RamByteFails(std::uint32_t address) const;
  [[nodiscard]] std::optional<std::uint32_t> HsmStatus() const { return hsmStatus; }
  enum class AccessFault : std::uint8_t { None, Wait, Fail };
  // What the coming access through the debug port meets. Counts it, unless it is to wait.
  AccessFault NextAccess() { return accesses.empty() ? AccessFault::None : FindAccessFault(); }
  enum class PacketFault : std::uint8_t { Lost, Short, Unplugged };
  // What the coming packet to the probe meets, if anything. Counts it.
  std::optional<PacketFault> NextPacket();
  // Counts one flash word; true when power fails with it, which happens once.
  bool NextWordCutsPower();

 private:
  struct ResetFault {
    std::uint32_t nth = 0;
    std::uint32_t seen = 0;
  };
  struct WireFault {
    AccessFault kind = AccessFault::Fail;
    std::uint32_t nth = 0;
    std::optional<std::uint32_t> waits;  // still to be answered; none: without end
    std::uint32_t seen = 0;
  };
  struct LinkFault {
    PacketFault kind = PacketFault::Lost;
    std::uint32_t nth = 0;
    std::uint32_t seen = 0;
  };
  void AddOne(std::string_view entry);
  // The faults "kind:what"; false when there is no such fault.
  bool AddPair(std::string_view entry, std::string_view kind, std::string_view what);
  void AddWire(std::string_view entry);
  void AddPacket(std::string_view entry);
  AccessFault FindAccessFault();

  std::vector<SaciFault> answers;
  std::vector<ResetFault> resets;
  std::vector<WireFault> accesses;
  std::vector<LinkFault> packets;
  std::vector<std::uint32_t> cells;
  std::vector<std::uint32_t> ramBytes;
  std::optional<std::uint32_t> hsmStatus;
  std::uint32_t wordsToPowerCut = 0;  // 0: none is to come
};

}  // namespace simulator
