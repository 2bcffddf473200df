#include "ProbeCost.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <deque>
#include <limits>
#include <memory>
#include <optional>
#include <vector>

#include "NullHost.h"
#include "host/device/DeviceDescription.h"
#include "host/probe/AdiProbe.h"
#include "host/probe/cmsisdap/CmsisDap.h"

namespace bench {
namespace {

using host::Packet;

constexpr std::size_t kPacketSize = 512;
constexpr std::uint8_t kInfo = 0x00;
constexpr std::uint8_t kInfoPacketSize = 0xFF;
constexpr std::uint8_t kTransfer = 0x05;
constexpr std::uint8_t kTransferBlock = 0x06;
constexpr std::uint8_t kOk = 1;

// A probe to which all succeeds, and whose registers are full of ones.
class PerfectLink final : public host::PacketLink {
 public:
  [[nodiscard]] std::size_t PacketSize() const override { return kPacketSize; }
  void Send(std::span<const std::uint8_t> packet) override { answers.push_back(AnswerTo(packet)); }
  std::optional<Packet> Receive(std::chrono::milliseconds) override {
    Packet answer = std::move(answers.front());
    answers.pop_front();
    return answer;
  }
  void Sleep(std::uint32_t) override {}

 private:
  static Packet AnswerTo(std::span<const std::uint8_t> packet) {
    switch (packet[0]) {
      case kInfo:
        if (packet[1] == kInfoPacketSize) return {kInfo, 2, kPacketSize & 0xFF, kPacketSize >> 8};
        return {kInfo, 1, 5};  // has a serial wire; takes so many packets
      case kTransfer: return TransferAnswer(packet);
      case kTransferBlock: return {kTransferBlock, packet[2], packet[3], kOk};
      case 0x02: return {0x02, 1};     // connected by serial wire
      case 0x10: return {0x10, 0x80};  // the reset pin is high
      default: return {packet[0], 0};
    }
  }

  // Three bytes, and a word for every read that compares nothing.
  static Packet TransferAnswer(std::span<const std::uint8_t> packet) {
    constexpr unsigned kRead = 2;
    constexpr unsigned kMatch = 16;
    Packet answer{kTransfer, packet[2], kOk};
    std::size_t at = 3;
    for (unsigned left = packet[2]; left > 0; --left) {
      const unsigned request = packet[at++];
      const bool takesWord = (request & kRead) == 0 || (request & kMatch) != 0;
      if (takesWord) at += 4;
      if (!takesWord) answer.insert(answer.end(), 4, 0xFF);
    }
    return answer;
  }

  std::deque<Packet> answers;
};

double CpuNs() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

}  // namespace

double ProbeNsPerPacket() {
  const host::AccessPorts ports =
      host::ReadDeviceDescription(host::ListDeviceFiles(TOVIK_DEVICES).front()).ports;
  host::AdiProbe probe(std::make_unique<host::CmsisDap>(std::make_unique<PerfectLink>(), 10'000'000), ports,
                       host::ReadAhead::Yes);
  probe.Connect(host::Core::DebugPort);
  const std::uint32_t flags = probe.FindRegister("SECAP_RXCTL").value();
  const std::vector<std::uint32_t> sector(kSectorSize / 4, 0x5A5A'5A5A);
  std::vector<std::uint32_t> word(1);
  double best = std::numeric_limits<double>::max();
  for (int run = 0; run < 15; ++run) {
    const std::uint64_t packets = probe.Counted().packets;
    const double begin = CpuNs();
    for (int sectors = 0; sectors < 500; ++sectors) {
      probe.PushWords(sector);
      (void)probe.ReadRegister(flags);
      probe.PopWords(word);
    }
    best = std::min(best, (CpuNs() - begin) / static_cast<double>(probe.Counted().packets - packets));
  }
  return best;
}

}  // namespace bench
