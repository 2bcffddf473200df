#include <gtest/gtest.h>

#include "TestChip.h"
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
      {"saci:256:lost", "Fault \"saci:256:lost\": \"256\" is above 255"},
      {"saci:14:Lost", "Fault \"Lost\": no such action"},
      {"saci:14:result=", "Fault \"result=\": \"\" is not a number"},
      {"saci:14:count=-1", "Fault \"count=-1\": \"-1\" is not a number"},
      {"saci:14:nth=0:lost", "Fault \"nth=0\": the first is number 1"},
      {"saci:14:each:lost", "Fault \"each\": is not nth=N"},
      {"cell:0x1G", "Fault \"cell:0x1G\": \"0x1G\" is not a number"},
      {"cell:4294967296", "Fault \"cell:4294967296\": \"4294967296\" is not a number"},
      {"power:after=0", "Fault \"power:after=0\": the first word is number 1"},
      {"reset-misses-saci:nth", "Fault \"reset-misses-saci:nth\": no such fault"},
      {"cell:1,,cell:2", "Fault \"\": no such fault"},
      {"saci:1:lost,bogus", "Fault \"bogus\": no such fault"},
  };
  for (const auto& c : cases) EXPECT_EQ(ErrorOf([&] { Ask(c.text); }), c.error);
  EXPECT_EQ(target.Command({0x0000'0101}), (Words{0x0000'0101})) << "a rejected text adds nothing";
}

TEST_F(FaultsTest, ChangesTheAnswerAsAsked) {
  const struct {
    const char* text;
    Words answer;
  } cases[] = {
      {"saci:1:result=0x84", {0x0084'0101}},
      {"saci:0x01:result=255", {0x00FF'0101}},
      {"saci:*:wrong-id", {0x0000'01FE}},
      {"saci:1:wrong-seq", {0x0000'0201}},
      {"saci:1:count=2", {0x0200'0101, 0, 0}},
      {"saci:1:lost", {}},
      {"saci:1:hang", {}},
      {"saci:9:lost", {0x0000'0101}},
  };
  for (const auto& c : cases) {
    TestChip fresh;
    fresh.chip.AskedFaults().Add(c.text);
    EXPECT_EQ(fresh.Command({0x0000'0101}), c.answer) << c.text;
  }
}

TEST_F(FaultsTest, StrikesTheNthAnswerOnlyAndTheFirstThatFitsWins) {
  Ask("saci:1:nth=2:lost,saci:*:nth=4:result=0x85");
  Ask("saci:1:nth=4:result=0x84");
  EXPECT_EQ(target.Command({0x0000'0101}), (Words{0x0000'0101}));
  EXPECT_EQ(target.Command({0x0000'0201}), Words{});
  EXPECT_EQ(target.Command({0x0000'0301}), (Words{0x0000'0301}));
  EXPECT_EQ(target.Command({0x0000'0401}), (Words{0x0085'0401}));
  EXPECT_EQ(target.Command({0x0000'0501}), (Words{0x0000'0501}));
}

TEST_F(FaultsTest, ARefusedCommandIsNotCarriedOutALostOneIs) {
  const Words program = {0x0004'010E, kKey, 0, 0x1234'5678};
  Ask("saci:14:nth=1:result=0x84,saci:14:nth=2:lost");
  target.Command(program);
  EXPECT_EQ(AsWords(target.Contents().main)[0], 0xFFFF'FFFFu);
  target.Command(program);
  EXPECT_EQ(AsWords(target.Contents().main)[0], 0x1234'5678u);
}

TEST_F(FaultsTest, AResetRequestMissesSaci) {
  Ask("reset-misses-saci:nth=2");
  target.EnterSaci();
  EXPECT_EQ(target.BootStatus(), 0x20u);
  target.EnterSaci();
  EXPECT_EQ(target.BootStatus(), 0xC0u);
  target.EnterSaci();
  EXPECT_EQ(target.BootStatus(), 0x20u);
}

TEST_F(FaultsTest, ARamByteReadsBackWrong) {
  Ask("ram:0x20000002");
  const Bytes bytes = {0x10, 0x20, 0x30, 0x40};
  target.ports.WriteMemory(0x2000'0000, bytes);
  Bytes back(4);
  target.ports.ReadMemory(0x2000'0000, back);
  EXPECT_EQ(back, (Bytes{0x10, 0x20, 0x31, 0x40}));
}

TEST_F(FaultsTest, TheSecurityModuleReportsTheAskedStatus) {
  Ask("hsm:status=2");
  EXPECT_EQ(target.Command({0x0000'0123}), (Words{0x0100'0123, 2}));
}

}  // namespace
}  // namespace simulator
