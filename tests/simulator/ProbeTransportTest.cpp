#include <gtest/gtest.h>

#include <numeric>

#include "ProbeClient.h"
#include "TestChip.h"
#include "tests/support/ErrorOf.h"

namespace simulator {
namespace {

constexpr std::uint32_t kTxData = 0x0200'0000, kTxCtl = 0x0200'0004, kRxData = 0x0200'0008,
                        kRxCtl = 0x0200'000C, kRstCtl = 0x0200'0010;

ChipDescription LargeSectors() {
  ChipDescription chip = SmallChip();
  chip.sectorSize = 2048;
  chip.mainSize = 32 * chip.sectorSize;
  return chip;
}

// In SACI, a pipelined transfer from address 0 with number 0.
void BeginProgramming(ProbeClient& client) {
  EXPECT_EQ(client.Connect(), "");
  client.Write(kRstCtl, 0x5C);
  client.transport.Sleep(10);
  client.Write(kTxCtl, 2);
  client.Write(kTxData, 0x0000'000F);
  client.Write(kTxCtl, 0);
  client.Write(kTxData, kKey);
  client.Write(kTxData, 0);
  client.transport.Sleep(1);
}

void ProgramSector(ProbeClient& client, std::span<const std::uint32_t> image, std::size_t sector) {
  EXPECT_TRUE(client.WriteBlock(0x01, image.subspan(sector * 512, 512)));
  if (sector == 0) return;  // two are unacknowledged at most
  EXPECT_EQ(client.Read(kRxCtl) & 1, 1u);
  EXPECT_EQ(client.Read(kRxData), 0x0000'000Fu + ((sector - 1) << 8));
}

TEST(ProbeTransportTest, ASectorTakesThePacketsTimeOfItsProbe) {
  const struct {
    const char* probe;
    Nanoseconds time;
    std::uint64_t packets;
  } cases[] = {{"hs", 2'855'800, 7}, {"fs", 13'725'000, 39}, {"hid", 84'382'500, 39}};
  Words image(32 * 512);
  std::iota(image.begin(), image.end(), 0x1234'5678U);
  for (const auto& c : cases) {
    Chip chip(LargeSectors());
    SwdTarget target(chip);
    ProbeClient client(target, FindProbeSpeed(c.probe).value());
    BeginProgramming(client);
    ProgramSector(client, image, 0);
    ProgramSector(client, image, 1);
    const auto before = client.transport.Counted();
    const Nanoseconds begin = client.transport.HostNow();
    for (std::size_t sector = 2; sector < 32; ++sector) ProgramSector(client, image, sector);
    const auto after = client.transport.Counted();
    EXPECT_EQ(client.transport.HostNow() - begin, 30 * c.time) << c.probe;
    EXPECT_EQ(after.packets - before.packets, 30 * c.packets) << c.probe;
    EXPECT_EQ(after.waits - before.waits, 30 * c.packets) << c.probe;
    // RDBUFF behind each block; SELECT, the access and RDBUFF for each of the two registers.
    EXPECT_EQ(after.words - before.words, 30 * (512 + (c.packets - 2) + 6)) << c.probe;
    EXPECT_EQ(AsWords(chip.State().main), image) << c.probe;
  }
  EXPECT_FALSE(FindProbeSpeed("HS"));
}

struct ProbeLinkTest : testing::Test {
  ProbeLinkTest() { EXPECT_EQ(client.Connect(), ""); }
  void Send(const char* packet) { client.transport.Send(FromHex(packet)); }
  std::string Receive(Nanoseconds timeout = kSecond) {
    return ToHex(client.transport.Receive(timeout).value_or(Bytes{}));
  }
  Chip chip{SmallChip()};
  SwdTarget target{chip};
  ProbeClient client{target, {.packetSize = 64, .packetCount = 2, .latency = kMillisecond}};
};

TEST_F(ProbeLinkTest, AnswersArriveInOrderWhenTheyAreDue) {
  const Nanoseconds start = client.transport.HostNow();
  const auto elapsed = [&] { return (client.transport.HostNow() - start) / kMicrosecond; };
  const std::uint64_t waits = client.transport.Counted().waits;
  Send("09 E8 03");  // 1 ms
  Send("00 FE");
  EXPECT_EQ(ErrorOf([&] { Send("00 FF"); }), "More packets in flight than the 2 that the probe takes");
  EXPECT_EQ(Receive(2'900 * kMicrosecond), "") << "there, a millisecond of work, and back";
  EXPECT_EQ(Receive(200 * kMicrosecond), "09 00");
  EXPECT_EQ(elapsed(), 3'000u);
  EXPECT_EQ(Receive(0), "00 01 02") << "came with it";
  EXPECT_EQ(client.transport.Counted().waits - waits, 1u);
  EXPECT_EQ(Receive(kMillisecond), "") << "nothing is under way";
  EXPECT_EQ(elapsed(), 4'000u);
  client.transport.Sleep(5);
  Send("00 FE");
  Receive();
  EXPECT_EQ(elapsed(), 11'000u);
  EXPECT_EQ(ErrorOf([&] { client.transport.Send(Bytes(65)); }), "A packet of 65 bytes, the probe takes 64");
  client.transport.Send(Bytes(64));
  EXPECT_EQ(Receive(), "00 00");
}

TEST_F(ProbeLinkTest, AnAbortEndsWhatIsUnderWay) {
  chip.AskedFaults().Add("wire:wait");
  const Nanoseconds start = client.transport.HostNow();
  Send("05 00 02 0B 0B");
  Send("00 FE");
  client.transport.Sleep(3);
  Send("07");  // is never one too many
  EXPECT_EQ(Receive(), "05 00 02");
  EXPECT_EQ((client.transport.HostNow() - start) / kMillisecond, 5u) << "3, there and back";
  EXPECT_EQ(Receive(), "00 01 02");
  Send("07");
  EXPECT_EQ(Receive(kMillisecond), "") << "it has no answer";
  Send("07");
  EXPECT_EQ(client.Ask("05 00 01 02"), "05 01 01 FF 1F 41 05") << "and does not reach what is sent behind it";
  Send("7F 02 09 E8 03 05 00 01 02");
  client.transport.Sleep(1);
  Send("07");
  EXPECT_EQ(Receive(), "7F 02 09 00 05 00 00") << "at its very moment no transfer begins any more";
}

TEST_F(ProbeLinkTest, PacketsGoAstrayAsAsked) {
  chip.AskedFaults().Add("packet:2:lost,packet:4:short,packet:6:unplugged");
  EXPECT_EQ(client.Ask("00 FE"), "00 01 02");
  Send("09 01 00");
  Send("00 FE");
  EXPECT_EQ(Receive(), "00 01 02") << "the answer to the one before is lost";
  EXPECT_EQ(client.Ask("00 01"), "00 06 54 6F");
  Send("00 FE");
  EXPECT_EQ(ErrorOf([&] { Send("00 FE"); }), "The debug probe has been unplugged");
  EXPECT_EQ(ErrorOf([&] { Send("00 FE"); }), "The debug probe has been unplugged");
  EXPECT_EQ(ErrorOf([&] { Receive(); }), "The debug probe has been unplugged");
  ProbeClient again(target);
  EXPECT_EQ(again.Connect(), "");
}

TEST_F(ProbeLinkTest, WordsInFlightGoOnAfterWaitButNotAfterFault) {
  const struct {
    const char* fault;
    const char* second;
  } cases[] = {{"wire:nth=1:wait=1", "06 01 00 01"}, {"wire:nth=1:fault", "06 00 00 04"}};
  for (const auto& c : cases) {
    client.Ask("04 00 00 00 00 00");
    client.Ask("05 00 01 08 00 00 00 02");
    chip.AskedFaults().Add(c.fault);
    Send("06 00 01 00 05 00 00 00 00");
    Send("06 00 01 00 05 00 00 00 00");
    Receive();
    EXPECT_EQ(Receive(), c.second) << c.fault;
  }
}

TEST_F(ProbeLinkTest, ReportsHaveTheirFullSize) {
  ProbeClient hid(target, FindProbeSpeed("hid").value());
  hid.Connect();
  EXPECT_EQ(FromHex(hid.Ask("00 FE")).size(), 64u);
  EXPECT_EQ(hid.Ask("12 20").substr(0, 5), "12 00") << "what is missing is zeros";
}

TEST_F(ProbeLinkTest, APowerCutSilencesTheDebugPort) {
  BeginProgramming(client);
  client.Write(0x04, 0x2000'0000);  // TAR
  client.Ask("05 00 01 08 00 00 00 02");
  chip.AskedFaults().Add("power:after=1");
  EXPECT_FALSE(client.WriteBlock(0x01, Words(16)));
  EXPECT_NE(client.Connect(), "");
  EXPECT_EQ(client.Ask("1D 03 88 38 FF FF FF FF FF FF FF 10 9E E7"), "1D 00 FF") << "nobody drives";
  chip.PowerCycle();
  EXPECT_EQ(client.Ask("12 40 FF FF FF FF FF FF FF 00"), "12 00");
  EXPECT_EQ(client.Ask("05 00 01 02"), "05 00 07") << "it wakes up as JTAG, whatever was selected before";
  EXPECT_EQ(client.Connect(), "");
  EXPECT_EQ(client.Read(0x04), 0u);
}

}  // namespace
}  // namespace simulator
