#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/plugin/HostCall.h"

namespace host {

// A rule that a plug-in has broken.
struct CallFinding {
  std::string_view rule;   // its name
  std::uint64_t call = 0;  // number of the host call at which it showed
  std::string what;
};

// Bytes of the regions whose commands carry a whole one.
struct WireSizes {
  std::uint32_t ccfg = 2048;
  std::uint32_t userRecord = 128;
  std::uint32_t scfg = 1024;
};

// Follows a plug-in's words to the chip and back, and holds them to docs/wire-format.md:
//   in SACI            a command only after the status register has shown SACI
//   TX empty           a command only after TX_DATA_FULL has been seen clear
//   start flag         TX_CMD_START for a header and for nothing else, which comes alone
//   command            one that there is, of its size, and whole before the next
//   key                before what erases or programs
//   sequence           counts up by one, from 0 after a reset into SACI
//   answer             read once RX_DATA_READY is seen, as long as it is, before the next command
//   register           none is written but SECAP_TXCTL and SECAP_RSTCTL, with the values they have
// After a failure nothing is known of the chip: the rules rest until the next reset.
class WireChecker {
 public:
  // Both are kept: what is found is appended to `sink`.
  WireChecker(const WireSizes& regionSizes, std::vector<CallFinding>& sink)
      : sizes(regionSizes), findings(sink) {}

  void Take(const HostCall& call);
  void LoseTrack() { isLost = true; }
  // A new device counts its commands anew, whatever the chip has seen before.
  void BeginDevice() { nextSequence.reset(); }

 private:
  struct Command {
    std::uint8_t id = 0;
    std::uint8_t sequence = 0;
    std::uint16_t specific = 0;
    std::size_t words = 0;   // sent so far, the header included
    std::size_t wanted = 0;  // in all
    std::size_t stream = 0;  // words that must follow the command
    bool takesStream = false;
    bool isAnswered = true;
  };

  void TakeRegister(const HostCall& call);
  void TakeReset();
  void Push(std::span<const std::uint32_t> words);
  void BeginCommand(std::uint32_t header);
  void CheckTurn();
  void TakeParameter(std::uint32_t word);
  void TakeStream();
  void Pop(std::span<const std::uint32_t> words);
  void TakeAnswer(std::uint32_t header);
  [[nodiscard]] std::size_t WordsOf(const Command& header) const;
  void Find(std::string_view rule, std::string what);

  WireSizes sizes;
  std::vector<CallFinding>& findings;
  std::map<std::uint64_t, std::string> registers;  // names, by address
  std::uint64_t number = 0;
  bool isLost = false;
  bool inSaci = false;       // was seen, and nothing has ended it since
  bool startFlag = false;    // as last written
  bool txEmpty = false;      // was seen, and no header has gone since
  bool answerReady = false;  // was seen, and the answer has not been begun
  std::size_t answerLeft = 0;
  std::optional<std::uint8_t> nextSequence;
  Command command;
};

}  // namespace host
