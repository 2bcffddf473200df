#include <algorithm>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "ByteSource.h"
#include "Require.h"
#include "tests/simulator/ProbeClient.h"
#include "tests/simulator/TestChip.h"

// Arbitrary packets to the simulated probe, several in flight. Each is answered, with the command's own first
// byte or the one that says that there is no such command, and no answer is longer than a packet. Whatever
// the packets did, a debugger that begins from nothing can load the chip.
//
// Input: packet size and faults | the packets, each with its length before it.

namespace {

using namespace fuzz;
using namespace simulator;

constexpr Nanoseconds kForEver = 1'000'000 * kSecond;  // even at one clock a second
constexpr std::uint8_t kTransferAbort = 0x07;
constexpr std::uint8_t kQueueCommands = 0x7E;
constexpr std::uint8_t kExecuteCommands = 0x7F;
constexpr std::uint8_t kInvalid = 0xFF;

class HostileDebugger {
 public:
  explicit HostileDebugger(ProbeTransport& probe) : transport(probe) {}

  void Send(std::vector<std::uint8_t> packet) {
    // Queued commands alone would fill the probe and never be executed.
    const bool isLast = unanswered.size() + 1 == transport.Speed().packetCount;
    if (isLast && !packet.empty() && packet[0] == kQueueCommands) packet[0] = kExecuteCommands;
    transport.Send(packet);
    if (!packet.empty() && packet[0] == kTransferAbort) return;
    unanswered.push_back(packet.empty() ? kInvalid : packet[0]);
    if (isLast) Receive();
  }
  void Finish() {
    Send({0x00, 0xFE});
    while (!unanswered.empty()) Receive();
  }

 private:
  void Receive() {
    const auto answer = transport.Receive(kForEver);
    Require(answer && !answer->empty(), "every packet is answered");
    Require(answer->size() <= transport.Speed().packetSize, "an answer fits a packet");
    Require(answer->front() == unanswered.front() || ToHex(*answer) == "FF", "an answer names its command");
    unanswered.pop_front();
  }

  ProbeTransport& transport;
  std::deque<std::uint8_t> unanswered;
};

// From whatever state the line, the pins and the chip are in.
void Load(Chip& chip, ProbeClient& client) {
  const std::string wake = "12 94 FF 92 F3 09 62 95 2D 85 86 E9 AF DD E3 A2 0E BC 19 A0 01 > 12 00\n";
  const std::string start = "02 01 > 02 01\n 11 80 96 98 00 > 11 00\n 10 80 80 00 00 00 00 > 10 83\n";
  // Twice: the first may have come in the middle of another one.
  Require(client.Play(start + wake + wake).empty() && client.Connect().empty(), "a debugger connects");
  constexpr std::uint32_t kTxData = 0x0200'0000, kTxCtl = 0x0200'0004, kRxData = 0x0200'0008;
  client.Write(0x0200'0010, 0x5C);
  client.transport.Sleep(10);
  Require(client.Connect().empty(), "a debugger connects again");
  const Words sector(16, 0x1234'5678);
  for (const Words& command : {Words{0x0000'0009, kKey}, Joined({0x0040'010E, kKey, 0}, sector)}) {
    client.Write(kTxCtl, 2);
    client.Write(kTxData, command[0]);
    client.Write(kTxCtl, 0);
    for (std::size_t i = 1; i < command.size(); ++i) client.Write(kTxData, command[i]);
    client.transport.Sleep(100);
    Require((client.Read(kRxData) & 0x00FF'FFFF) == (command[0] & 0xFFFF), "the chip does as it is told");
  }
  Require(std::ranges::equal(AsWords(std::span(chip.State().main).first(64)), sector),
          "the sector is loaded");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kLongest = 1024;  // a packet of failing comparisons, all tried again, takes its time
  ByteSource input({data, std::min(size, kLongest)});
  const std::uint8_t choice = input.Byte();
  Chip chip(SmallChip());
  SwdTarget target(chip, {.debugPortSurvivesReset = (choice & 4) == 0});
  ProbeClient client(target, {.packetSize = (choice & 1) != 0 ? std::size_t{512} : std::size_t{64}});
  if ((choice & 2) != 0) chip.AskedFaults().Add("wire:nth=5:wait=20,wire:nth=30:fault");
  HostileDebugger hostile(client.transport);
  while (!input.IsEmpty()) {
    const auto packet = input.Take(std::min<std::size_t>(input.Byte(), client.transport.Speed().packetSize));
    hostile.Send({packet.begin(), packet.end()});
  }
  hostile.Finish();
  chip.AskedFaults() = {};
  Load(chip, client);
  return 0;
}
