#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "ChipDescription.h"
#include "ChipState.h"
#include "Faults.h"

namespace simulator {

// The security module: takes a firmware image word by word, judges its header as soon as it is there and the
// rest when all of it is. Results are SACI result codes: 0 done, 130 size, 142 installed but does not start,
// 143 header, 144 older than what is installed, 145 payload.
class Hsm {
 public:
  // What became of a word that was handed over.
  enum class Progress : std::uint8_t {
    Wanted,      // more words may come at once
    RecordDone,  // a record is complete: the module works on it before the next word
    Refused,     // the image will not do; Refusal() says why, no further word is looked at
    Complete,    // the announced number of words is there: Install() is next
  };

  Hsm(const ChipDescription& chip, HsmState& kept, const Faults& asked)
      : description(chip), state(kept), faults(asked) {}

  [[nodiscard]] bool Exists() const { return description.hsm != HsmKind::None; }
  // Announces an image; false when no image has that size.
  bool Begin(std::uint32_t words);
  Progress Take(std::uint32_t word);
  [[nodiscard]] std::uint8_t Refusal() const { return refusal; }
  // The image broke off.
  void Abandon();
  // Verifies and installs the complete image.
  std::uint8_t Install();

  // Nine words; the eighth is the firmware's version in bits 23-0.
  [[nodiscard]] std::array<std::uint32_t, 9> SystemInfo() const;
  [[nodiscard]] bool Boots() const { return state.boots; }
  [[nodiscard]] std::uint32_t UpdateStatus() const;

 private:
  Progress TakeWhole();
  Progress TakeRecords();
  Progress EndRecord();
  // `header`: version and flags, payload bytes, CRC.
  Progress TakeHeader(std::span<const std::uint32_t> header);
  Progress Refuse(std::uint8_t result);
  void AppendPayload(std::size_t firstWord, std::size_t bytes);
  std::uint8_t Fail(std::uint8_t result);

  const ChipDescription& description;
  HsmState& state;
  const Faults& faults;
  std::vector<std::uint32_t> image;  // the words so far
  std::vector<std::uint8_t> payload;
  std::uint32_t announcedWords = 0;
  std::uint32_t versionAndFlags = 0;
  std::uint32_t payloadBytes = 0;
  std::uint32_t payloadCrc = 0;
  std::size_t recordData = 0;  // word index of the coming record's first data word
  std::size_t recordEnd = 0;   // word index after the coming record; 0 while its length word is awaited
  std::uint8_t refusal = 0;
};

}  // namespace simulator
