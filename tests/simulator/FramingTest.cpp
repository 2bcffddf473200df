#include <gtest/gtest.h>

#include "Transcript.h"

namespace simulator {
namespace {

// RXCTL: 1 an answer word is there, 4 the ROM works. TXCTL: 1 the word is not taken yet, 2 the start flag.
TEST(FramingTest, WordsFlagsAndTime) {
  const Transcript transcripts[] = {
      {"a word without start flag is no command; those behind it are dropped", R"(
          set TXCTL 0; raw 501; answer 800501; raw 601; answer -; 701 -> 701)"},
      {"parameters with the start flag are taken for commands", "set TXCTL 2; raw 109 KEY; answer 80E94B"},
      {"a new header ends a half-received command", "send 109; answer -; 201 -> 201"},
      // 20 us until the command is carried out, 40 ms of erasing: one nanosecond less is not done.
      {"flags follow the command through virtual time", R"(
          set TXCTL 2; set TXDATA 109; set TXCTL 0; set TXDATA 5C17E94B; RXCTL = 4
          ns 40019999; RXCTL = 4; RXDATA = 0
          ns 1; RXCTL = 1; RXDATA = 109; RXCTL = 0)"},
      {"a word that the busy ROM has not taken keeps the TX register full", R"(
          send 109 KEY; ns 1000000; set TXCTL 2; TXCTL = 2; set TXDATA 201; TXCTL = 3
          answer 109; answer 201; TXCTL = 2)"},
      {"the TX register is empty once its word is taken, whoever looks first",
       "send 101; sleep 1; TXCTL = 2; TXDATA = 0; RSTCTL = 0"},
      {"a word that meets the TX register full overflows the waiting command", R"(
          send 109 KEY; ns 1000000; send 209 KEY; answer 109; answer 850209; 301 -> 301)"},
      {"a reset request forgets words, answers and flags", R"(
          send 201; sleep 1; RXCTL = 1; saci; RXCTL = 0; TXCTL = 0; RXDATA = 0; answer -)"},
      {"so does a pin reset; a blank chip stops in SACI", R"(
          send 201; sleep 1; RXCTL = 1; pin; sleep 6; RXCTL = 0; TXCTL = 0; RXDATA = 0; answer -)"},
      {"a word written during the boot is taken when SACI is reached", R"(
          set RSTCTL 5C; set TXCTL 2; set TXDATA 101; ns 4999999; TXCTL = 3; ns 20001; RXCTL = 1)"},
      {"outside SACI nobody takes the word", "107 -> 107; sleep 10; boot 81; send 201; TXCTL = 3; answer -"},
  };
  PlayEach(transcripts);
}

TEST(PipelinedTest, StreamsSectors) {
  const Transcript transcripts[] = {
      {"each sector is acknowledged with the next number, the header is not", R"(
          send FE0F KEY 80; answer -; raw 16*1; answer FE0F; raw 16*2; answer FF0F; raw 16*3; answer F; RXCTL = 0
          main 7C = FFFFFFFF 16*1 16*2 16*3 FFFFFFFF)"},
      {"the next header ends it and drops half a sector", R"(
          send 10F KEY 0; raw 8*0; send 20F KEY 40; raw 16*9; answer 20F; main 0 = 16*FFFFFFFF 16*9
          80000310 0 40 0 -> 310; set TXCTL 0; raw 801; answer 800801)"},
      {"the sector behind MAIN is refused", R"(
          send 10F KEY 4AC0; raw 16*7; answer 10F; raw 16*7; answer 81020F)"},
  };
  PlayEach(transcripts);
}

TEST(PipelinedTest, WaitsForTheFlash) {
  const Transcript transcripts[] = {
      {"a third sector before the first is programmed overruns", R"(
          send 50F KEY 0; raw 16*1 16*2 16*3; answer 50F; answer 60F; answer 85070F
          main 0 = 16*1 16*2 FFFFFFFF; 601 -> 601)"},
      {"the next command waits, its parameters are kept", R"(
          send 10F KEY 0; raw 16*0; send 4020E KEY 40 12345678; ns 45000000; RXCTL = 4; main 40 = FFFFFFFF
          sleep 5; main 0 = 0; answer 10F; answer 20E; main 40 = 12345678)"},
      {"it works as long as it programs",
       "send 10F KEY 0; raw 16*0; ns 20000; RXCTL = 4; answer 10F; RXCTL = 0"},
      {"a reset ends the waiting",
       "send 10F KEY 0; raw 16*0; saci; send 201; ns 25000; RXCTL = 1; answer 201"},
  };
  PlayEach(transcripts, SmallChip(), {.programSector = 50 * kMillisecond});
}

TEST(PipelinedTest, ReceivesOneSectorWhileItProgramsTheOneBefore) {
  const Nanoseconds program = 1 * kMillisecond;
  TestChip target(SmallChip(), {.programSector = program});
  target.Send({0x0000'010F, kKey, 0});
  target.WriteTxWords(Words(16, 1));
  const Nanoseconds firstThere = target.Now();
  target.WriteTxWords(Words(16, 2));
  EXPECT_LT(target.Now(), firstThere + program) << "the second arrives during the first's programming";
  // Back to back: the flash never waits for the wire.
  for (const double count : {1.0, 2.0}) {
    while ((target.chip.ReadRegister(Register::SecApRxCtl) & 1) == 0) target.chip.Clock().Advance(10);
    EXPECT_NEAR(static_cast<double>(target.Now() - firstThere), count * program, 10 * count);
    target.chip.ReadRegister(Register::SecApRxData);
  }
}

}  // namespace
}  // namespace simulator
