#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "BootRom.h"
#include "ChipDescription.h"
#include "ChipMemory.h"
#include "CostModel.h"
#include "Faults.h"
#include "Hsm.h"

namespace simulator {

// The ROM's command interpreter behind the SEC-AP's data and flag registers. Runs while the boot ROM is in
// SACI; a word written at any other time stays in the TX register.
//
// A word transferred with TX_CMD_START set is a command header: bits 7-0 command, 15-8 sequence number, 31-16
// the command's own. Words without the flag are its parameters. When all are there, the command is carried
// out after a moment and answered: command, sequence number, result, number of data words, then these.
//
// - A header ends whatever was going on, a pipelined transfer or a half-received command.
// - A word more than the command takes turns its result into 133, and it is not carried out.
// - A word without flag that belongs to no command is answered with 128 (its bytes taken for command and
//   sequence number); those that follow it up to the next header are dropped, like those after any refusal.
// - The TX register holds one word. One that meets it full is lost, and the command whose word was in there
//   is answered with 133.
// - A pipelined transfer has two sector buffers: one fills while the other is programmed. A word that finds
//   neither free ends the transfer with 133.
class SaciServer {
 public:
  SaciServer(const ChipDescription& chip, const CostModel& times, ChipMemory& memories, BootRom& boot,
             Hsm& module, Faults& asked)
      : description(chip), costs(times), memory(memories), rom(boot), hsm(module), faults(asked) {}

  // Forgets everything, as every reset does.
  void Reset();

  // Carries out what is due by `now`. The accesses below do this first.
  void AdvanceTo(Nanoseconds now);
  void WriteTxControl(std::uint32_t value, Nanoseconds now);
  void WriteTxData(std::uint32_t word, Nanoseconds now);
  std::uint32_t ReadTxControl(Nanoseconds now);
  std::uint32_t ReadRxControl(Nanoseconds now);
  // Takes the next word of an answer. Without one, the last word once more.
  std::uint32_t ReadRxData(Nanoseconds now);

 private:
  enum class Stage : std::uint8_t { Idle, Parameters, Settling, Streaming, HsmImage, Discarding, Hung };
  struct TxWord {
    std::uint32_t value;
    bool start;
  };
  struct RxWord {
    std::uint32_t value;
    Nanoseconds readyAt;
    bool hsmError = false;         // answers an image before it was complete
    bool resetsWhenTaken = false;  // the reset command's acknowledgement
  };
  struct Command {
    std::uint8_t id = 0;
    std::uint8_t sequence = 0;
    std::uint16_t specific = 0;
    std::vector<std::uint32_t> words = {};  // after the header
  };
  struct Outcome {
    std::uint8_t result = 0;
    Nanoseconds duration = 0;
    std::vector<std::uint32_t> data = {};
  };
  struct ParameterPlan {
    std::uint8_t refusal = 0;  // the header alone shows that the command will not do
    std::size_t words = 0;     // to come after the header
  };

  // SaciServer.cpp: words in, answers out, and time.
  void Take(TxWord word, Nanoseconds at);
  void BeginCommand(std::uint32_t header, Nanoseconds at);
  void CarryOut(Nanoseconds at);
  void LeaveOrReset(Nanoseconds at, bool answered);
  void TakeStreamed(std::uint32_t word, Nanoseconds at);
  void ProgramStreamed(Nanoseconds at);
  void TakeHsmWord(std::uint32_t word, Nanoseconds at);
  // Answers the current command and drops what else comes of it.
  void Refuse(std::uint8_t result, Nanoseconds at);
  // False when the fault swallows the answer.
  bool Answer(Outcome outcome, Nanoseconds at, const std::optional<SaciFault>& fault, bool hsmError = false);
  void Hang();
  void ResetChip(Nanoseconds at);

  // SaciCommands.cpp: what each command takes and does.
  [[nodiscard]] ParameterPlan PlanParameters(const Command& header) const;
  Outcome Execute(const Command& command);
  Outcome RequestPasswordId() const;
  Outcome SubmitPassword(const Command& command);
  Outcome EraseChip(const Command& command, bool keepConfiguration);
  Outcome ProgramCcfg(const Command& command);
  Outcome ProgramUserRecord(const Command& command);
  Outcome ProgramMainSector(const Command& command);
  Outcome BeginPipelined(const Command& command);
  [[nodiscard]] Outcome VerifyMain(const Command& command) const;
  [[nodiscard]] Outcome VerifyCcfg(const Command& command) const;
  Outcome ProgramOtp(const Command& command);
  Outcome ProgramScfg(const Command& command);
  [[nodiscard]] Outcome VerifyScfg(const Command& command) const;
  Outcome BeginHsmImage(const Command& command);
  [[nodiscard]] Outcome ReadHsmSystemInfo() const;
  [[nodiscard]] Nanoseconds MainProgramTime(std::size_t bytes) const;

  const ChipDescription& description;
  const CostModel& costs;
  ChipMemory& memory;
  BootRom& rom;
  Hsm& hsm;
  Faults& faults;

  Stage stage = Stage::Idle;
  bool startFlag = false;
  std::optional<TxWord> waiting;  // in the TX register
  bool overrun = false;  // a word met the TX register full; parameters and sectors never wait in there
  Command current;
  std::size_t wantedWords = 0;
  Nanoseconds settledAt = 0;
  Nanoseconds busyUntil = 0;  // the ROM takes no word before
  std::deque<RxWord> answers;
  std::uint32_t lastRxWord = 0;

  std::uint32_t streamAddress = 0;         // of the sector that is being received
  std::vector<std::uint8_t> streamBuffer;  // what of it is there
  Nanoseconds streamBufferFreeAt = 0;      // a buffer is there for the coming word
  Nanoseconds flashFreeAt = 0;             // all sectors before are programmed
};

}  // namespace simulator
