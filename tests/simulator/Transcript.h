#pragma once

#include <span>

#include "TestChip.h"

namespace simulator {

// A conversation with a chip, one step a line or between semicolons. Words are hexadecimal, N*W is N times
// the word W (N decimal), KEY the key, NOKEY a wrong one, CCFG a valid one that leaves debugging open,
// PASSWORD its three words.
//
//   WORDS -> WORDS   a command and its whole answer; "-" stands for no answer within ten seconds
//   send WORDS       a command; its answer is read by "answer WORDS"
//   raw WORDS        words with the start flag as it is
//   set NAME WORD    writes a register of the SEC-AP; this and the next take no time
//   NAME = WORD      what a register of the SEC-AP reads
//   boot WORD, ahb WORD   boot status code; whether the AHB-AP is open
//   saci, pin        reset request and the boot that follows; pin reset
//   sleep MS, ns N   lets time pass
//   hold KIND [AT]   a chip in SACI, blank but for its CCFG: open, closed, password, or an authorization
//   type;
//                    with one bit of the CCFG's byte AT changed
//   main AT = WORDS  what the memory holds there; also ccfg, scfg, otp
//   unchanged        every memory is as it was after the last "hold" or "mark", or in the beginning
//   fault TEXT       asks for a fault
struct Transcript {
  const char* about;
  const char* steps;
};

void Play(TestChip& target, const Transcript& transcript);
// Each with a chip of its own.
void PlayEach(std::span<const Transcript> transcripts, const ChipDescription& description = SmallChip(),
              const CostModel& costs = {});

}  // namespace simulator
