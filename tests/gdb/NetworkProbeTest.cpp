#include <fmt/format.h>

#include "ServerBench.h"

// The simulated probe as `tovik-flash serve` offers it, and its clients: the chip ends as from a load without
// it.

namespace {

const std::string kNet = " --device serin-s20 --probe tcp:127.0.0.1:$PORT";
const std::string kBigLoad = TOVIK_FLASH_PATH " load $FIRMWARE/blink-big.elf --no-progress" + kNet;

class NetworkProbeTest : public ServerBench {
 protected:
  void SetUp() override {
    ServerBench::SetUp();
    Start("--device serin-s20", "serve");
  }

  void ExpectLoads() {
    const std::string told = Run(kBigLoad);
    EXPECT_NE(told.find("Loaded and verified"), std::string::npos) << told;
    ExpectServerSays("The chip is kept in board.chip");
    ExpectChipLike("$FIRMWARE/blink-big.elf");
  }
};

TEST_F(NetworkProbeTest, ServesOneClientAfterTheOther) {
  ExpectServerSays("\nChip      board.chip (new)\nProbe     sim, for --probe tcp:127.0.0.1:");
  ExpectLoads();
  const std::string told =
      Run(TOVIK_FLASH_PATH " verify $FIRMWARE/blink-big.elf" + kNet +
          " && " TOVIK_FLASH_PATH " probes tcp:127.0.0.1:$PORT; " TOVIK_FLASH_PATH
          " load --dry-run $FIRMWARE/blink.elf" +
          kNet + " 2>&1; " TOVIK_FLASH_PATH " probes --json tcp:127.0.0.1:$PORT | tr -d ' \n'");
  for (const char* text :
       {"Verified", "\n    Tovik simulated CMSIS-DAP (network)\n    firmware 1.0.0, 4 packets of 512 bytes\n",
        "tovik-flash: --dry-run needs a simulated chip\n",
        R"("verb":"probes","exit_code":0,"error":null,"probes":[{"name":"tcp:127.0.0.1:)",
        R"(","product":"ToviksimulatedCMSIS-DAP","serial":"SIM0001","cable":"network","firmware":"1.0.0",)"
        R"("packet_size":512,"packet_count":4,"trouble":null}],"left_out":[]})"})
    EXPECT_NE(told.find(text), std::string::npos) << told;
  EXPECT_EQ(Stop(), 130);
}

TEST_F(NetworkProbeTest, TellsADocumentWhenItEnds) {
  Stop();
  Start("--device serin-s20 --once --json", "serve");
  Run(kBigLoad);
  ExpectServerSays(
      fmt::format("  \"exit_code\": 0,\n  \"error\": null,\n  \"port\": {},\n  \"clients\": 1\n}}\n", port));
}

TEST_F(NetworkProbeTest, SendsAwayWhoSpeaksNothingOfIt) {
  const struct {
    std::string bytes;
    const char* told;
  } cases[] = {
      {"GET / HTTP/1.1\r\n", "47 45 54 20 is no beginning of a packet"},
      {std::string("DAP\0\xFF\xFF\1\0", 8), "a packet of 65535 bytes, where 1024 is the most there can be"},
      {std::string("DAP\0\1\0\2\0\0", 9), "a packet of kind 2, where 1 is one to come"},
      {std::string("DAP\0\xFF\3\1\0", 8) + std::string(1023, 0),
       "A packet of 1023 bytes, the probe takes 512"},
  };
  for (const auto& c : cases) {
    const RawClient client(port);
    client.Send(c.bytes);
    EXPECT_EQ(client.ReadUntil("nothing ends so"), "") << c.told;
    ExpectServerSays(std::string("the client is sent away: ") + c.told);
  }
  { RawClient(port).Send(std::string("DAP\0\2\0\1", 7)); }
  ExpectServerSays("the client left in the middle of a packet");
  ExpectLoads();
}

TEST_F(NetworkProbeTest, OutlivesAClientThatDiesInTheMiddleOfALoad) {
  for (const char* seconds : {"0.02", "0.05", "0.1"})
    Run("timeout -s KILL " + std::string(seconds) + " " + kBigLoad);
  ExpectLoads();
}

TEST_F(NetworkProbeTest, HasOneClientAtATime) {
  {
    const RawClient first(port);
    ExpectServerSays("A client has connected");
    const std::string told = Run(kBigLoad);
    EXPECT_TRUE(told.starts_with("tovik-flash: the debug probe ended the connection without")) << told;
  }
  ExpectLoads();
}

TEST_F(NetworkProbeTest, CarriesALoadOfGdb) {
  const std::string told =
      Run("sh -c '" TOVIK_FLASH_PATH " gdbserver --once --json --port 0" + kNet +
          " > gdbserver.txt 2>&1 & "
          "until grep -q Listening gdbserver.txt; do sleep 0.05; done; gdb-multiarch -nx -batch "
          "-ex \"target extended-remote :$(sed -n s/Listening.*://p gdbserver.txt)\" -ex \"load "
          "$FIRMWARE/blink-big.elf\" "
          "-ex \"file $FIRMWARE/blink-big.elf\" -ex \"compare-sections .bulk\"; wait; cat gdbserver.txt'");
  for (const char* text : {"Transfer rate", "matched.", "\"last_load\": {"})
    EXPECT_NE(told.find(text), std::string::npos) << told;
  ExpectServerSays("The client has gone");
  ExpectChipLike("$FIRMWARE/blink-big.elf");
}

}  // namespace
