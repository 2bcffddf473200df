#include <gtest/gtest.h>

#include "ServerBench.h"
#include "host/gdb/Packets.h"

// Clients that no debugger is, against the built server over its sockets.

using host::gdb::Packet;

namespace {

class RawClientTest : public ServerBench {
 protected:
  void SetUp() override {
    ServerBench::SetUp();
    Start("--device serin-s20");
  }
  void TearDown() override {
    // Whatever came before, the next client is served.
    const RawClient client(port);
    client.Send(Packet("vFlashErase:3000,800") + Packet("vFlashWrite:3000:Tovik") + Packet("vFlashDone"));
    EXPECT_EQ(client.ReadUntil("$OK#9a+$OK#9a+$OK#9a"), "+$OK#9a+$OK#9a+$OK#9a");
    ExpectServerSays("Loaded and verified");
    EXPECT_EQ(Stop(), 130);
    EXPECT_NE(Read("board.chip").find("Tovik"), std::string::npos);
    ServerBench::TearDown();
  }
};

TEST_F(RawClientTest, LeavesInTheMiddleOfALoad) {
  {
    const RawClient client(port);
    client.Send(Packet("vFlashErase:3000,800") + Packet("vFlashWrite:3000:half a") + "$vFlashWrite:3800:");
    EXPECT_EQ(client.ReadUntil("$OK#9a+$OK#9a"), "+$OK#9a+$OK#9a");
  }
  ExpectServerSays("the client has left in the middle of a load: 6 bytes had come, nothing was done");
  ExpectServerSays("The client has gone");
}

TEST_F(RawClientTest, SendsMegabytesOfNothing) {
  {
    const RawClient client(port);
    client.Send("GET / HTTP/1.1\r\n" + std::string(3 << 20, 'x') + "$" + std::string(3 << 20, 'y') + "#00");
    EXPECT_EQ(client.ReadUntil("#a6"), "+$E01#a6");
  }
  ExpectServerSays("the client sent bytes that are no packet; is it a debugger?");
  ExpectServerSays("the client sent a packet of more than 65536 bytes");
  ExpectServerSays("The client has gone");
}

TEST_F(RawClientTest, ComesSecond) {
  {
    const RawClient first(port);
    first.Send(Packet("?"));
    EXPECT_EQ(first.ReadUntil("#b8"), "+$S05#b8");
    const RawClient second(port);
    second.Send("+" + Packet("qSupported"));
    EXPECT_EQ(second.ReadUntil("nothing ends so"), "+" + Packet("E.another client has the chip"));
    ExpectServerSays("Another client came, and was sent away\n");
    first.Send(Packet("?"));
    EXPECT_EQ(first.ReadUntil("#b8"), "+$S05#b8");
  }
  ExpectServerSays("The client has gone");
}

}  // namespace

// An interrupt in the middle of a load: the plug-in ends it, the chip is kept as it is, the program says so.
TEST_F(ServerBench, IsInterruptedInTheMiddleOfALoad) {
  Start("--device serin-s20 --real-time --fault saci:9:late=1000");
  const RawClient client(port);
  client.Send(Packet("vFlashErase:3000,800") + Packet("vFlashWrite:3000:Tovik") + Packet("vFlashDone"));
  EXPECT_EQ(client.ReadUntil("$OK#9a+$OK#9a"), "+$OK#9a+$OK#9a");
  ExpectServerSays("Flash loader:");
  EXPECT_EQ(Stop(), 130);
  EXPECT_EQ(client.ReadUntil("nothing ends so").substr(0, 4), "+$E.");
  EXPECT_NE(ServerText().find("interrupted in phase"), std::string::npos) << ServerText();
  EXPECT_FALSE(Read("board.chip").empty());
}

TEST_F(ServerBench, SaysThatThePortIsTaken) {
  Start("--device serin-s20");
  EXPECT_NE(Run(TOVIK_FLASH_PATH " gdbserver --device serin-s20 --port $PORT; echo exit $?").find("exit 2"),
            std::string::npos);
}

TEST_F(ServerBench, EndsWithItsOnlyClient) {
  Start("--device serin-s20 --once");
  { const RawClient client(port); }
  EXPECT_EQ(Wait(), 0);
}
