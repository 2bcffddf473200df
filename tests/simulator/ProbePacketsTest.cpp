#include <gtest/gtest.h>

#include <string>

#include "ProbeClient.h"
#include "TestChip.h"

namespace simulator {
namespace {

struct ProbePacketsTest : testing::Test {
  Chip chip{SmallChip()};
  SwdTarget target{chip};
  ProbeClient client{target, {.packetSize = 64, .packetCount = 3}};
};

TEST_F(ProbePacketsTest, SaysWhatItIsAndRefusesWhatItIsNot) {
  EXPECT_EQ(client.Play(R"(
    00 01 > 00 06 54 6F 76 69 6B 00
    00 02 > 00 1A 54 6F 76 69 6B 20 73 69 6D 75 6C 61 74 65 64 20 43 4D 53 49 53 2D 44 41 50 00
    00 03 > 00 08 53 49 4D 30 30 30 31 00
    00 04 > 00 06 32 2E 31 2E 30 00
    00 05 > 00 00                    # it names no target
    00 09 > 00 06 31 2E 30 2E 30 00
    00 F0 > 00 01 31
    00 F1 > 00 04 40 42 0F 00
    00 FD > 00 00                    # it has no trace buffer
    00 FE > 00 01 03
    00 FF > 00 02 40 00
    01 00 01 > 01 00
    01 01 00 > 01 00
    01 02 01 > 01 FF                 # there is no such light
    0A > 0A 00 00
    02 02 > 02 00                    # no JTAG, so that nothing is connected and no pin driven
    12 08 FF > 12 FF
    1D 01 08 FF > 1D FF
    08 00 1E 00 00 00 > 08 FF
    05 00 01 02 > 05 00 00
    06 00 01 00 02 > 06 00 00 00
    10 00 80 00 00 00 00 > 10 83
    7F 02 05 00 01 02 13 00 > 7F 01 05 00 00  # in a list, nothing is looked for behind what was refused
    7F 02 1D 01 08 FF 13 00 > 7F 01 1D FF
    7F 02 14 01 08 FF 13 00 > 7F 01 14 FF
    02 00 > 02 01
    11 00 00 00 00 > 11 FF
    14 01 08 FF > 14 FF              # JTAG
    15 01 04 > 15 FF
    16 00 > 16 FF
    17 01 > FF                       # trace
    1F 01 > FF                       # serial ports
    80 01 > FF
    > FF
    03 > 03 00
    05 00 01 02 > 05 00 00
  )"),
            "");
}

TEST_F(ProbePacketsTest, RefusesWhatEndsTooEarlyAndDoesNothing) {
  ASSERT_EQ(client.Connect(), "");
  for (const char* whole : {"01 00 01", "04 00 FF FF 00 00", "08 00 1E 00 00 00", "09 E8 03",
                            "11 40 42 0F 00", "12 21 FF FF FF FF 01", "13 00", "1D 01 21 FF FF FF FF 01"}) {
    const std::string text = whole;
    for (std::size_t length = 2; length + 1 < text.size(); length += 3)
      EXPECT_EQ(client.Ask(text.substr(0, length)), text.substr(0, 2) + " FF") << text.substr(0, length);
  }
  EXPECT_EQ(client.Play(R"(
    00 > 00 00
    02 > 02 00
    10 00 80 00 00 00 > 10 83                              # the reset pin stays high
    05 00 02 02 04 00 00 00 > 05 01 01 FF 1F 41 05
    06 00 02 00 04 00 00 00 50 00 > 06 00 00 00
    06 00 00 00 02 > 06 00 00 00
  )"),
            "");
  const std::string sixteenReads = "05 00 10 03 03 03 03 03 03 03 03 03 03 03 03 03 03 03 03";
  EXPECT_EQ(client.Ask(sixteenReads).substr(0, 8), "05 0F 01") << "and 16 single ones neither";
  EXPECT_EQ(client.Ask("05 00 08 82 82 82 82 82 82 82 82").substr(0, 8), "05 07 01")
      << "nor 8 and their times";
}

TEST_F(ProbePacketsTest, FillsAnAnswerToItsLastByte) {
  ASSERT_EQ(client.Connect(), "");
  const std::string thirteen = " 02 02 02 02 02 02 02 02 02 02 02 02 02";
  const struct {
    std::string request, begin;
    std::size_t length;
  } cases[] = {
      {"06 00 0F 00 02", "06 0F 00 01 FF", 64},
      {"05 00 10 02 02" + thirteen + " 00 00 00 00 00", "05 10 01 FF", 63},
      {"7F 02 00 FE 05 00 0F 02 02" + thirteen, "7F 02 00 01 03 05 0E 01", 64},
      {"7F 02 06 00 0D 00 02 00 F1", "7F 02 06 0D 00 01 FF", 64},
      {"7F 02 05 00 0D" + thirteen + " 00 01", "7F 02 05 0D 01 FF", 59},  // the text's last byte does not fit
      {"7F 02 06 00 10 00 02 13 00", "7F 02 06 00 00 00 13 00", 8},       // 16 words do not fit at all
      {"1D 08 80 80 80 80 80 80 80 B0", "1D 00 FF", 64},
      {"1D 08 80 80 80 80 80 80 80 B1", "1D FF FF", 58},
  };
  for (const auto& c : cases) {
    const std::string answer = client.Ask(c.request);
    EXPECT_EQ(answer.substr(0, c.begin.size()), c.begin) << c.request;
    EXPECT_EQ(FromHex(answer).size(), c.length) << c.request;
  }
}

TEST_F(ProbePacketsTest, RunsListsOfCommands) {
  ASSERT_EQ(client.Connect(), "");
  EXPECT_EQ(client.Play(R"(
    7F 02 13 00 05 00 01 02 > 7F 02 13 00 05 01 01 FF 1F 41 05
    7F 02 05 00 04 02 0C 00 00 00 00 3D 00 00 00 00 02 00 FE > 7F 02 05 04 01 FF 1F 41 05 FF 1F 41 05 00 01 03
    7F 03 13 00 99 13 00 > 7F 02 13 00 FF  # what follows a command that is none cannot be found
    7F 02 7F 01 13 00 > 7F 01 FF           # lists in lists are none
    7F 03 13 00 > 7F 01 13 00
    7F 01 13 00 13 00 > 7F 01 13 00
    7F 05 10 00 00 00 00 00 00 1D 01 08 00 12 00 FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF FF 00 00 F0 0A > 7F 05 10 83 1D 00 12 00 00 01 31 0A 00 00
    05 00 01 02 > 05 01 01 FF 1F 41 05     # 256 clocks were a line reset
    7F > 7F 00
  )"),
            "");
  EXPECT_EQ(client.Ask("7F 03 06 00 0E 00 02 00 02 00 02").substr(0, 17), "7F 01 06 0E 00 01")
      << "it is full";
  EXPECT_EQ(client.Ask("7F 04 06 00 0D 00 02 13 00 13 00 13 00").substr(0, 5), "7F 03")
      << "and here with 2 bytes";
  ProbeClient large{target, {.packetSize = 2048}};
  EXPECT_EQ(large.Connect(), "");
  EXPECT_EQ(large.Ask("06 00 00 01 06").substr(0, 11), "06 00 01 01");
  EXPECT_EQ(client.Ask("7E 01 13 00"), "") << "queued until a packet comes that is not";
  client.transport.Send(FromHex("7E 01 00 FE"));
  EXPECT_EQ(client.Ask("00 FF"), "7E 01 13 00");
  EXPECT_EQ(ToHex(client.transport.Receive(0).value()), "7E 01 00 01 03");
  EXPECT_EQ(ToHex(client.transport.Receive(0).value()), "00 02 40 00");
}

TEST_F(ProbePacketsTest, ThePinHoldsTheChipInReset) {
  ASSERT_EQ(client.Connect(), "");
  client.Write(0x0200'0010, 0x5C);
  client.Write(0x0000'0000, 0x0000'0012);
  const Nanoseconds before = client.transport.HostNow();
  EXPECT_EQ(client.Play(R"(
    09 88 13 > 09 00                                        # 5 ms
    10 80 80 00 00 00 00 > 10 83                            # high it is: no reset
    05 00 02 08 00 00 00 01 0B > 05 02 01 05 20 00 01       # in SACI
    10 00 80 00 00 00 00 > 10 03
    05 00 01 0B > 05 01 04                                  # the ports do not answer, the debug port does
    05 00 02 06 00 1E 00 00 00 > 05 02 01 20 00 00 F0
    05 00 02 09 00 00 00 00 06 > 05 02 01 60 00 00 F0       # neither when they are written to
    08 00 1E 00 00 00 > 08 00
    10 80 80 A0 86 01 00 > 10 83                            # no need to wait
    05 00 01 0B > 05 01 01 05 01 00 00                      # booting
    05 00 02 08 00 00 00 00 03 > 05 02 01 02 00 00 00       # what was set in the port is gone
    10 00 80 00 00 00 00 > 10 03
    03 > 03 00
    10 00 00 00 00 00 00 > 10 83                            # the board pulls up what nobody holds
  )"),
            "");
  EXPECT_LT(client.transport.HostNow() - before, 8 * kMillisecond);
  client.Ask("02 01");
  const Nanoseconds begin = client.transport.HostNow();
  EXPECT_EQ(client.Ask("10 20 20 40 42 0F 00"), "10 83") << "there is no such pin: all of the wait passes";
  EXPECT_EQ(client.Ask("10 20 20 FF FF FF FF"), "10 83") << "3 seconds at most";
  EXPECT_EQ(client.transport.HostNow() - begin, 4 * kSecond + 2 * 150 * kMicrosecond);
}

}  // namespace
}  // namespace simulator
