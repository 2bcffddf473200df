#include "host/probe/cmsisdap/TracedLink.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <sstream>

namespace host {
namespace {

struct CannedLink final : PacketLink {
  explicit CannedLink(const Packet& canned) : answer(canned) {}
  [[nodiscard]] std::size_t PacketSize() const override { return 64; }
  void Send(std::span<const std::uint8_t>) override {}
  std::optional<Packet> Receive(std::chrono::milliseconds) override { return answer; }
  [[nodiscard]] std::uint64_t NowNs() const override { return 12'345'678; }

  const Packet& answer;
};

// Packets to the probe and from it, and what is written of each. The last are the command of the password,
// with its header and words, and the command after it.
constexpr const char* kPackets = R"(
    > 00 FE                                                    | Info fe
    < 00 02 40 00                                              | Info 02 40 00
    > 02 01                                                    | Connect 01
    < 03 00                                                    | Disconnect 00
    > 04 00 40 00 00 00                                        | TransferConfigure 00 40 00 00 00
    < 08 00                                                    | WriteABORT 00
    > 10 00 80 00 00 00 00                                     | SWJ_Pins 00 80 00 00 00 00
    < 11 00                                                    | SWJ_Clock 00
    > 12 08 FF                                                 | SWJ_Sequence 08 ff
    < 13 00                                                    | SWD_Configure 00
    < FF 01                                                    | 0xff 01
    >                                                          | nothing
    > 05 00 04 02 06 0A 0E                                     | Transfer read DPIDR; read CTRL/STAT; read RESEND; read RDBUFF
    > 05 00 02 00 1E 00 00 00 04 00 00 00 50                   | Transfer write ABORT 0000001e; write CTRL/STAT 50000000
    > 05 00 02 08 10 00 00 02 03                               | Transfer write SELECT 02000010; read SECAP_RSTCTL
    > 05 00 02 08 F0 00 00 05 0F                               | Transfer write SELECT 050000f0; read AP5 0xfc
    > 05 00 03 08 00 00 00 02 20 01 00 00 00 1F 01 00 00 00    | Transfer write SELECT 02000000; mask 0x00000001; match SECAP_RXCTL 0x00000001
    > 06 00 02 00 01 01 00 00 00 02 00 00 80                   | TransferBlock write SECAP_TXDATA 2 words: 00000001 80000002
    > 06 00 01 01 0B                                           | TransferBlock read SECAP_RXDATA 257 words
    > 06 00                                                    | a packet that is cut short
    < 05 02 01 04 03 02 01                                     | Transfer 2 done, OK 01020304
    < 06 02 01 02                                              | TransferBlock 258 done, WAIT
    < 05 00 04                                                 | Transfer 0 done, FAULT
    < 05 00 07                                                 | Transfer 0 done, no acknowledge
    < 05 00 00                                                 | Transfer 0 done, nothing
    < 05 00 11                                                 | Transfer 0 done, OK, no match
    < 05 00 03                                                 | Transfer 0 done, acknowledge 3
    < 05 00                                                    | cut short: 05 00
    > 05 00 03 05 02 00 00 00 01 06 00 0C 00 05 00 00 00 00    | Transfer write SECAP_TXCTL 00000002; write SECAP_TXDATA 000c0006; write SECAP_TXCTL 00000000
    > 06 00 02 00 01 6F 70 65 6E 21 21 21 21                   | TransferBlock write SECAP_TXDATA 2 words: ******** ********
    > 05 00 03 05 02 00 00 00 01 05 00 00 00 05 00 00 00 00    | Transfer write SECAP_TXCTL 00000002; write SECAP_TXDATA 00000005; write SECAP_TXCTL 00000000
    > 05 00 01 01 78 56 34 12                                  | Transfer write SECAP_TXDATA 12345678
)";

TEST(TracedLinkTest, TellsEachPacketAndHidesPasswords) {
  const std::string path = testing::TempDir() + "tovik-traced-link.txt";
  std::string expected;
  {
    Packet packet;
    TracedLink link(std::make_unique<CannedLink>(packet), path, {});
    std::istringstream rows(kPackets + 1);
    for (std::string row; std::getline(rows, row);) {
      char direction = 0;
      std::istringstream bytes(row.substr(0, row.find('|')));
      bytes >> direction >> std::hex;
      packet.clear();
      for (unsigned byte = 0; bytes >> byte;) packet.push_back(static_cast<std::uint8_t>(byte));
      direction == '>' ? link.Send(packet) : void(link.Receive({}));
      expected += std::string("     12.3457 ") + direction + row.substr(row.find('|') + 1) + "\n";
    }
  }
  std::ifstream file(path);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), expected);
}

}  // namespace
}  // namespace host
