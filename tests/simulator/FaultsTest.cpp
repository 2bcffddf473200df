#include <gtest/gtest.h>

#include "Transcript.h"
#include "tests/support/ErrorOf.h"

namespace simulator {
namespace {

struct FaultsTest : testing::Test {
  void Ask(const char* text) { target.chip.AskedFaults().Add(text); }
  TestChip target;
};

TEST_F(FaultsTest, SaysWhichPieceIsNotUnderstood) {
  const struct {
    const char* text;
    const char* error;
  } cases[] = {
      {"saci", "Fault \"saci\": is not saci:COMMAND[:nth=N]:ACTION"},
      {"saci:14", "Fault \"saci:14\": is not saci:COMMAND[:nth=N]:ACTION"},
      {"saci:1:nth=1:late=2:lost", "Fault \"saci:1:nth=1:late=2:lost\": is not saci:COMMAND[:nth=N]:ACTION"},
      {"saci:256:lost", "Fault \"saci:256:lost\": \"256\" is above 255"},
      {"saci:14:Lost", "Fault \"Lost\": no such action"},
      {"saci:14:result=", "Fault \"result=\": \"\" is not a number"},
      {"saci:14:count=256", "Fault \"count=256\": \"256\" is above 255"},
      {"saci:14:count=-1", "Fault \"count=-1\": \"-1\" is not a number"},
      {"saci:14:nth=0:lost", "Fault \"nth=0\": the first is number 1"},
      {"saci:14:each:lost", "Fault \"each\": is not nth=N"},
      {"cell:0x1G", "Fault \"cell:0x1G\": \"0x1G\" is not a number"},
      {"cell:4294967296", "Fault \"cell:4294967296\": \"4294967296\" is not a number"},
      {"power:after=0", "Fault \"power:after=0\": the first word is number 1"},
      {"reset-misses-saci:nth", "Fault \"reset-misses-saci:nth\": no such fault"},
      {"cell:1,,cell:2", "Fault \"\": no such fault"},
      {"saci:1:lost,bogus", "Fault \"bogus\": no such fault"},
      {"wire", "Fault \"wire\": is not wire[:nth=N]:ACTION"},
      {"wire:nth=0:wait", "Fault \"nth=0\": the first is number 1"},
      {"wire:waits", "Fault \"waits\": no such action"},
      {"packet:1", "Fault \"packet:1\": is not packet:N:ACTION"},
      {"packet:0:lost", "Fault \"packet:0:lost\": the first is number 1"},
      {"packet:1:gone", "Fault \"gone\": no such action"},
      {"cell:1:2", "Fault \"cell:1:2\": no such fault"},
      {"bogus:1", "Fault \"bogus:1\": no such fault"},
  };
  for (const auto& c : cases) EXPECT_EQ(ErrorOf([&] { Ask(c.text); }), c.error);
  EXPECT_EQ(target.Command({0x0000'0101}), (Words{0x0000'0101})) << "a rejected text adds nothing";
}

TEST_F(FaultsTest, StrikesAsAsked) {
  const Transcript transcripts[] = {
      {"result", "fault saci:1:result=0x84; 101 -> 840101"},
      {"of a command in hexadecimal", "fault saci:0X01:result=255; 101 -> FF0101"},
      {"wrong id", "fault saci:*:wrong-id; 101 -> 1FE"},
      {"wrong sequence number", "fault saci:1:wrong-seq; 101 -> 201"},
      {"count", "fault saci:1:count=2; 101 -> 2000101 0 0"},
      {"lost, each time", "fault saci:1:lost; 101 -> -; 201 -> -"},
      {"hang", "fault saci:1:hang; 101 -> -; 201 -> -; saci; fault saci:9:lost"},
      {"of another command", "fault saci:9:lost; 101 -> 101"},
      {"late", "fault saci:1:late=50; send 101; sleep 49; RXCTL = 0; sleep 2; answer 101"},
      {"the nth answer only, and the first fault that fits", R"(
          fault saci:1:nth=2:lost,saci:*:nth=4:result=0x85; fault saci:1:nth=4:result=0x84
          101 -> 101; 201 -> -; 301 -> 301; 401 -> 850401; 501 -> 501)"},
      {"a refused command is not carried out, a lost one is", R"(
          fault saci:14:nth=1:result=0x84,saci:14:nth=2:lost
          4010E KEY 0 12345678 -> 84010E; main 0 = FFFFFFFF; 4010E KEY 0 12345678 -> -; main 0 = 12345678)"},
      {"a reset request misses SACI", R"(
          fault reset-misses-saci:nth=2; saci; boot 20; saci; boot C0; saci; boot 20)"},
      {"every one does", "fault reset-misses-saci; saci; boot C0; saci; boot C0"},
      {"HSM status", "fault hsm:status=2; 123 -> 1000123 2"},
  };
  PlayEach(transcripts);
}

TEST_F(FaultsTest, RamBytesReadBackWrong) {
  Ask("ram:0x20000002,ram:0x20000000");
  const Bytes bytes = {0x10, 0x20, 0x30, 0x40};
  target.WriteMemory(0x2000'0000, bytes);
  Bytes back(4);
  target.ReadMemory(0x2000'0000, back);
  EXPECT_EQ(back, (Bytes{0x11, 0x20, 0x31, 0x40}));
}

}  // namespace
}  // namespace simulator
