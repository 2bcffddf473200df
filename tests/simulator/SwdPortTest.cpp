#include <gtest/gtest.h>

#include <string>

#include "ProbeClient.h"
#include "TestChip.h"

namespace simulator {
namespace {

struct SwdPortTest : testing::Test {
  SwdPortTest() { EXPECT_EQ(client.Connect(), ""); }
  Chip chip{SmallChip()};
  SwdTarget target{chip};
  ProbeClient client{target};
};

TEST_F(SwdPortTest, ListensOnlyBehindTheRightSequence) {
  const std::string toJtag = "12 48 FF FF FF FF FF FF FF 3C E7", toSwd = "12 48 FF FF FF FF FF FF FF 9E E7",
                    toDormant = "12 48 FF FF FF FF FF FF FF BC E3",
                    resetLine = "12 40 FF FF FF FF FF FF FF 00",
                    wake = "12 94 FF 92 F3 09 62 95 2D 85 86 E9 AF DD E3 A2 0E BC 19 A0 ",
                    wrongAlert = "12 94 FF 92 F3 09 62 95 2D 85 86 E9 AF DD E3 A2 0E BC 18 A0 01";
  const struct {
    const char* name;
    std::vector<std::string> sequences;
    bool listens;
  } cases[] = {
      {"50 ones", {"12 33 FF FF FF FF FF FF 01"}, true},
      {"49 ones", {"12 32 FF FF FF FF FF FF 00"}, false},
      {"no idle clocks", {"12 38 FF FF FF FF FF FF FF"}, false},
      {"one idle clock", {"12 39 FF FF FF FF FF FF FF 00"}, false},
      {"back to JTAG", {toJtag, resetLine}, false},
      {"to JTAG and back", {toJtag, toSwd, resetLine}, true},
      {"48 ones before a selection", {toJtag, "12 48 00 FF FF FF FF FF FF 9E E7", resetLine}, false},
      {"JTAG to dormant", {toJtag, "12 27 FF BA BB BB 33", toSwd, resetLine}, false},
      {"all but the last bit of it", {toJtag, "12 26 FF BA BB BB 33", toSwd, resetLine}, true},
      {"dormant", {toDormant, toSwd, resetLine}, false},
      {"woken up", {toDormant, wake + "01", resetLine}, true},
      {"woken up as JTAG", {toDormant, wake + "00", resetLine}, false},
      {"from there to SWD", {toDormant, wake + "00", toSwd, resetLine}, true},
      {"a wrong alert", {toDormant, wrongAlert, resetLine}, false},
  };
  for (const auto& c : cases) {
    SwdTarget fresh(chip);
    ProbeClient debugger(fresh);
    EXPECT_EQ(debugger.Connect(), "");
    // A request with the wrong parity: now only a line reset helps. It ends with a one.
    debugger.Ask("1D 01 08 85");
    for (const std::string& sequence : c.sequences) EXPECT_EQ(debugger.Ask(sequence), "12 00");
    EXPECT_EQ(debugger.Ask("05 00 01 02"), c.listens ? "05 01 01 FF 1F 41 05" : "05 00 07") << c.name;
  }
}

TEST_F(SwdPortTest, TransfersBitByBit) {
  EXPECT_EQ(client.Play(R"(
    12 40 FF FF FF FF FF FF FF 00 > 12 00
    05 00 01 06 > 05 00 07                        # CTRL/STAT, but DPIDR has to be first
    05 00 01 02 > 05 00 07                        # and after that nothing is answered
    12 40 FF FF FF FF FF FF FF 00 > 12 00
    1D 02 08 A5 A6 > 1D 00 F3 FF 11 54 30         # DPIDR: turnaround, 001, the word and its parity, turnaround
    05 00 01 02 > 05 01 01 FF 1F 41 05
    12 40 FF FF FF FF FF FF 3C E7 > 12 00         # 48 ones: those before the transfer do not belong to them
    12 40 FF FF FF FF FF FF FF 00 > 12 00
    05 00 01 02 > 05 01 01 FF 1F 41 05
    1D 03 08 B1 85 21 F0 00 00 01 01 > 1D 00 13   # SELECT 0x010000F0
    05 00 01 0F > 05 01 01 10 00 FE 1F            # IDR of the CFG-AP
    1D 03 08 B1 85 21 F0 00 00 01 00 > 1D 00 13   # with the wrong parity: WDATAERR, until ABORT
    05 00 01 0F > 05 00 04
    1D 02 08 9F 85 > 1D 00 19                     # FAULT, and no data
    1D 02 08 B1 85 > 1D 00 19                     # in neither direction
    05 00 01 06 > 05 01 01 80 00 00 F0
    05 00 02 00 F7 FF FF FF 06 > 05 02 01 80 00 00 F0
    05 00 01 00 08 00 00 00 > 05 01 01
    1D 04 08 B1 85 21 00 00 00 01 01 02 00 > 1D 00 13
    1D 03 08 87 82 A4 > 1D 00 03 40 00 F8 7F 0C   # an access port: what was in the buffer
    1D 02 00 00 00 00 00 00 00 00 00 01 00 > 1D 00  # 64 clocks and one
    1D 02 08 85 84 > 1D 00 0F                     # a request with the wrong parity: nobody answers
    05 00 01 02 > 05 00 07
    1D 01 80 > 1D 00 FF FF FF FF FF FF FF FF      # 64 clocks in which nobody drives
    05 00 01 20 00 00 00 00 > 05 01 01            # a match mask is the probe's own
    12 38 FF FF FF FF FF FF FF > 12 00            # a line reset that lacks its two zeros
    10 00 02 00 00 00 00 > 10 81                  # data low
    10 00 01 00 00 00 00 > 10 80                  # clock low
    10 02 01 00 00 00 00 > 10 80                  # low already; data is not selected
    10 01 01 00 00 00 00 > 10 81                  # the clock rises: one zero
    10 01 01 00 00 00 00 > 10 81                  # high already
    05 00 01 02 > 05 00 07
    10 00 01 00 00 00 00 > 10 80
    10 01 01 00 00 00 00 > 10 81
    05 00 01 02 > 05 01 01 FF 1F 41 05
    12 33 FF FF FF FF FF FF 01 > 12 00            # 49 ones: the transfer's end does not belong to them either
    05 00 01 02 > 05 00 07
  )"),
            "");
}

TEST_F(SwdPortTest, PortsNeedPowerAndNamesThatExist) {
  EXPECT_EQ(client.Play(R"(
    05 00 05 08 01 00 00 00 04 00 00 00 00 06 08 00 00 00 00 06 > 05 05 01 00 00 00 00 40 00 00 F0  # is in bank 0
    05 00 02 08 F0 00 00 00 0F > 05 02 01 01 00 FF 1F
    05 00 02 08 F0 00 00 00 0B > 05 02 01 02 00 00 00              # no components to debug
    05 00 02 08 F0 00 00 02 0F > 05 02 01 20 00 FE 1F
    05 00 02 08 F0 00 00 03 0F > 05 02 01 00 00 00 00              # no such port
    05 00 03 08 20 00 00 02 01 FF FF FF FF 03 > 05 03 01 00 00 00 00  # no such register
    05 00 02 08 00 00 00 01 03 > 05 02 01 2F 80 B9 2B
    05 00 03 20 FF 00 00 00 03 1B 05 00 00 00 > 05 03 01 2F 80 B9 2B  # a match behind a read leaves its word
    05 00 02 04 00 00 00 50 03 > 05 02 01 2F 80 B9 2B              # asked for again: nothing changes
    05 00 01 04 00 00 00 10 > 05 01 01                             # debug power alone
    05 00 01 03 > 05 00 04
    05 00 02 06 00 1E 00 00 00 > 05 02 01 20 00 00 30
    05 00 02 04 00 00 00 50 03 > 05 01 04                          # asked for, but not up yet
    04 00 00 00 64 00 > 04 00
    # off, on, and CTRL/STAT until it is
    05 00 06 00 1E 00 00 00 04 00 00 00 00 04 00 00 00 50 20 00 00 00 F0 16 00 00 00 F0 03 > 05 06 01 2F 80 B9 2B
    11 C1 09 0E 00 > 11 00                                         # a transfer takes 49.999 us, one too few
    05 00 03 04 00 00 00 00 04 00 00 00 50 06 > 05 03 01 40 00 00 50
    11 C0 09 0E 00 > 11 00                                         # 50 us
    05 00 03 04 00 00 00 00 04 00 00 00 50 06 > 05 03 01 40 00 00 F0
    05 00 03 04 00 00 00 00 04 00 00 00 50 03 > 05 03 01 2F 80 B9 2B
  )"),
            "");
}

TEST_F(SwdPortTest, ReadsArePostedAndTheProbeHidesIt) {
  client.Write(0x0200'0010, 0x5C);
  client.Ask("09 88 13");
  client.Write(0x0200'0004, 2);
  client.Write(0x0200'0000, 0x0000'0022);  // system information: ten words with the header
  EXPECT_EQ(client.Play(R"(
    04 00 00 00 00 00 > 04 00
    05 00 01 12 00 00 00 00 > 05 01 01                      # a mask that nobody has set: nothing can differ
    # RXCTL, whose bit 0 is 1 at the first look; two words, CTRL/STAT between them and the next
    05 00 06 20 01 00 00 00 1F 01 00 00 00 0B 0B 06 0B > 05 06 01 22 00 00 09 48 53 4D 00 40 00 00 F0 00 00 04 00
    06 00 02 00 0B > 06 02 00 01 00 00 00 00 00 00 00 00
    05 00 03 20 FF 00 00 00 1F 40 00 00 00 0B > 05 01 11    # never 0x40: a mismatch, and nothing after it
    06 00 05 00 0B > 06 05 00 01 00 00 00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 00 00
    06 00 02 00 06 > 06 02 00 01 40 00 00 F0 40 00 00 F0    # CTRL/STAT is there at once
    05 00 01 0F > 05 01 01 00 00 00 00                      # all ten have been taken
  )"),
            "");
}

TEST_F(SwdPortTest, TimeStampsComeBeforeTheWordsOfTheirTransfer) {
  client.Ask("11 40 42 0F 00");     // 1 MHz: 46 microseconds a transfer,
  client.Ask("04 02 FF FF 00 00");  // and two clocks between them
  const auto bytes = FromHex(client.Ask("05 00 05 88 00 00 00 01 83 87 82 96 00 00 00 00"));
  ASSERT_EQ(bytes.size(), 3u + 5 * 4 + 3 * 4);
  const Words words = AsWords(std::span(bytes).subspan(3));
  const std::uint32_t begin = words[0];
  EXPECT_EQ(words, (Words{begin, begin + 48, 0x2BB9'802F, begin + 96, 0x8012'3456, begin + 192, 0x0541'1FFF,
                          begin + 240}));
}

TEST_F(SwdPortTest, AFailedAccessStopsAllUntilAbort) {
  client.Write(0x0000'0004, 0x6000'0000);  // the AHB-AP, where there is no memory
  EXPECT_EQ(client.Play(R"(
    05 00 03 0D 01 00 00 00 0D 02 00 00 00 06 > 05 01 04     # the first fails, the second says so
    06 00 01 00 0F > 06 00 00 04
    05 00 02 1F 00 00 00 00 02 > 05 00 04
    05 00 01 08 00 00 00 00 > 05 00 04
    05 00 01 0E > 05 00 04                                   # RDBUFF, too
    05 00 02 06 02 > 05 02 01 20 00 00 F0 FF 1F 41 05
    05 00 02 00 FB FF FF FF 06 > 05 02 01 20 00 00 F0
    08 00 04 00 00 00 > 08 00
    06 00 01 00 0D 01 00 00 00 > 06 01 00 04                 # the last write shows in the check behind it
    08 00 1E 00 00 00 > 08 00
    05 00 01 0F > 05 01 04                                   # a read likewise: its word is missing
    08 00 1E 00 00 00 > 08 00
    05 00 01 0E > 05 01 01 00 00 00 00                       # and RDBUFF empty
    05 00 02 0F 06 > 05 01 04                                # nothing goes on behind it
    08 00 1E 00 00 00 > 08 00
    05 00 01 0D 01 00 00 00 > 05 01 04                       # the check of a single write
    08 00 1E 00 00 00 > 08 00
    05 00 02 1F 00 00 00 00 02 > 05 00 04                    # the second look of a match
  )"),
            "");
}

TEST_F(SwdPortTest, WaitIsTriedAgainAsOftenAsConfigured) {
  const struct {
    const char* faults;
    const char* block;
    const char* status;
  } cases[] = {
      {"wire:wait=3", "06 03 00 01", "40 00 00 F0"},
      {"wire:wait=4", "06 00 00 02", "40 00 00 F0"},
      {"wire:nth=3:wait=4", "06 02 00 02", "40 00 00 F0"},
      {"wire:nth=4:wait", "06 03 00 02", "00 00 00 F0"},  // the check of the last write
      {"wire:nth=2:wait=3,wire:nth=2:fault", "06 01 00 04", "60 00 00 F0"},
      {"wire:nth=4:fault", "06 03 00 04", "20 00 00 F0"},
      {"wire:nth=5:fault", "06 03 00 01", "40 00 00 F0"},
      {"wire:fault", "06 00 00 04", "60 00 00 F0"},
  };
  for (const auto& c : cases) {
    client.Connect();
    client.Ask("04 00 03 00 00 00");
    client.Ask("05 00 01 08 00 00 00 02");
    chip.AskedFaults() = {};
    chip.AskedFaults().Add(c.faults);
    EXPECT_EQ(client.Ask("06 00 03 00 05 00 00 00 00 00 00 00 00 00 00 00 00"), c.block) << c.faults;
    chip.AskedFaults() = {};
    EXPECT_EQ(client.Ask("05 00 01 06"), std::string("05 01 01 ") + c.status) << c.faults;
  }
}

TEST_F(SwdPortTest, OverrunDetectionNeedsADataPhase) {
  client.Ask("04 00 00 00 00 00");
  client.Ask("13 04");
  client.Ask("05 00 01 04 01 00 00 50");
  chip.AskedFaults().Add("wire:wait");
  EXPECT_EQ(client.Play(R"(
    05 00 02 08 00 00 00 00 06 > 05 02 01 41 00 00 F0  # what is read behind a write is check enough
    05 00 01 03 > 05 00 02
    05 00 01 06 > 05 01 01 03 00 00 F0                 # STICKYORUN
    1D 02 08 9F A6 > 1D 00 09 00 00 00 20              # FAULT, and 33 clocks of data
    05 00 02 00 EF FF FF FF 06 > 05 02 01 03 00 00 F0
    08 00 10 00 00 00 > 08 00
    13 00 > 13 00
    05 00 01 03 > 05 00 02
    05 00 01 06 > 05 00 07                             # the port took the clocks of this request for data
  )"),
            "");
}

TEST_F(SwdPortTest, NeedsTheTurnaroundOfThePort) {
  const Nanoseconds begin = client.transport.HostNow();
  EXPECT_EQ(client.Play("13 01 > 13 00 \n 05 00 01 06 > 05 00 07"), "");
  EXPECT_EQ(client.transport.HostNow() - begin, 2 * 150 * kMicrosecond + 1500) << "15 clocks, no data";
  EXPECT_EQ(client.Play("13 00 > 13 00 \n 05 00 01 06 > 05 00 07"), "");
  EXPECT_EQ(client.Connect(), "");
}

TEST_F(SwdPortTest, AProbeThatNobodyConfiguredTriesAHundredTimesMoreAtOneMegahertz) {
  ProbeClient other(target);
  const Nanoseconds begin = other.transport.HostNow();
  chip.AskedFaults().Add("wire:wait=100");
  EXPECT_EQ(other.Play(R"(
    02 01 > 02 01
    12 40 FF FF FF FF FF FF FF 00 > 12 00
    1D 02 08 A5 A6 > 1D 00 F3 FF 11 54 30
    05 00 01 16 01 00 00 00 > 05 00 11    # a match looks once
    05 00 01 0E > 05 01 01 00 00 00 00
  )"),
            "");
  const Nanoseconds clocks = 64 + 46 + 46 + 100 * 13 + 46;
  EXPECT_EQ(other.transport.HostNow() - begin, 5 * 150 * kMicrosecond + clocks * kMicrosecond);
  chip.AskedFaults().Add("wire:wait=101");
  EXPECT_EQ(other.Ask("05 00 01 0E"), "05 00 02");
}

TEST_F(SwdPortTest, TheResetRequestMayTakeTheDebugPortAlong) {
  SwdTarget fragile(chip, {.cfgDeviceId = 0x24, .secTxData = 0x20, .debugPortSurvivesReset = false});
  ProbeClient other(fragile);
  EXPECT_EQ(other.Connect(), "");
  EXPECT_EQ(other.Play(R"(
    05 00 02 08 20 00 00 01 07 > 05 02 01 2F 80 B9 2B
    05 00 04 08 20 00 00 02 01 EF BE AD DE 08 00 00 00 02 07 > 05 04 01 01 00 00 00  # the word is there
    05 00 02 08 10 00 00 02 01 5C 00 00 00 > 05 02 07
    12 38 FF FF FF FF FF FF FF > 12 00
    12 10 9E E7 > 12 00
    12 40 FF FF FF FF FF FF FF 00 > 12 00
    # DPIDR, RESEND, CTRL/STAT, RDBUFF as when power came: no result, no error, no power asked for
    05 00 04 02 0A 06 0E > 05 04 01 FF 1F 41 05 00 00 00 00 00 00 00 00 00 00 00 00
  )"),
            "");
  EXPECT_EQ(other.Connect(), "");
}

}  // namespace
}  // namespace simulator
