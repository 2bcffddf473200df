// The command channel: transfers, flags, waits, echoes, and what is left behind when a host call fails.

#include <gtest/gtest.h>
#include <rapidcheck/gtest.h>

#include <algorithm>

#include "ChannelTest.h"

namespace {

using Lines = std::vector<std::string>;

struct SaciTransportTest : ChannelTest {
  std::string Nop() {
    return ResultOf([&] { return saci.Nop(); });
  }
  std::string Erase() {
    return ResultOf([&] { return saci.EraseChip(true, false, &retained); });
  }
  long Count(const std::string& line) const { return std::count(host.calls.begin(), host.calls.end(), line); }

  Words retained;
};

const std::string kTxTimeout = "Timeout when waiting for SEC-AP TX data to be empty.";
const std::string kRxTimeout = "Timeout when waiting for SEC-AP RX data to be ready.";

// One transfer of words, with SEC_AP current for no longer than it takes.
std::string Sent(const std::string& transfer) {
  return Joined({"SetCoreById SEC_AP", "IsConnected"}) + (transfer.empty() ? "" : transfer + "\n") +
         "SetCoreById CS_DAP_0\n";
}

TEST_F(SaciTransportTest, CommandsAndResponsesAreOneTransferBehindTheirHeaders) {
  EXPECT_EQ(Nop(), "0");
  EXPECT_EQ(Joined(host.calls),
            Joined({"ReadReg SECAP_TXCTL", "WriteReg SECAP_TXCTL 0x2", "SetCoreById SEC_AP", "IsConnected",
                    "Connect false", "WriteMemory SEC_AP @0x0 page 1 size 4 x1: 00000001",
                    "SetCoreById CS_DAP_0", "ReadReg SECAP_RXCTL"}) +
                Sent("ReadMemory SEC_AP @0x0 page 1 size 4 x1") +
                Sent(""));  // no data words: an empty range is no transfer
  StartAt(0);
  host.ReplyOnce(9, {.data = {0x11111111, 0x22222222, 0x33333333}});
  EXPECT_EQ(Erase(), "0");
  EXPECT_EQ(retained, (Words{0x11111111, 0x22222222, 0x33333333}));
  EXPECT_EQ(Joined(host.calls),
            Joined({"ReadReg SECAP_TXCTL", "WriteReg SECAP_TXCTL 0x2"}) +
                Sent("WriteMemory SEC_AP @0x0 page 1 size 4 x1: 00010009") + "WriteReg SECAP_TXCTL 0x0\n" +
                Sent("WriteMemory SEC_AP @0x0 page 1 size 4 x1: 5C17E94B") + "ReadReg SECAP_RXCTL\n" +
                Sent("ReadMemory SEC_AP @0x0 page 1 size 4 x1") +
                Sent("ReadMemory SEC_AP @0x0 page 1 size 4 x3"));
}

TEST_F(SaciTransportTest, SequenceNumbersWrapAndRestart) {
  for (int i = 0; i < 257; ++i) ASSERT_EQ(Nop(), "0");
  EXPECT_EQ(host.commands[255].words, Words{0x0000FF01});
  EXPECT_EQ(host.commands[256].words, Words{0x00000001});
  saci.ResetInterfaceState();
  Nop();
  EXPECT_EQ(host.commands.back().words, Words{0x00000001});
}

TEST_F(SaciTransportTest, WaitsASecondToSendAndFiveForTheResponse) {
  const struct {
    unsigned txFull, rxLate;
    std::string outcome;
    long txReads, rxReads, sleeps;
  } rows[] = {{10, 0, "0", 11, 1, 10},
              {11, 0, kTxTimeout, 11, 0, 10},  // nothing is written
              {0, 50, "0", 1, 51, 50},
              {0, 51, kRxTimeout, 1, 51, 50}};
  for (const auto& row : rows) {
    StartAt(7);
    host.txFullPolls = row.txFull;
    host.ReplyOnce(1, {.latePolls = row.rxLate});
    EXPECT_EQ(Nop(), row.outcome);
    EXPECT_EQ(Count("ReadReg SECAP_TXCTL"), row.txReads);
    EXPECT_EQ(Count("ReadReg SECAP_RXCTL"), row.rxReads);
    EXPECT_EQ(Count("Sleep 100"), row.sleeps);
    EXPECT_EQ(host.commands.empty(), row.rxReads == 0);
    EXPECT_EQ(saci.GenRespSeqNumber(), 8) << "a command that failed has used its number";
    if (row.rxReads == 0) (void)Nop();  // takes the reply that was not asked for
  }
}

TEST_F(SaciTransportTest, OnlyTheFlagAwaitedCountsAndAWaitEndsBelowZeroToo) {
  host.ScriptRegister("SECAP_TXCTL", {0xFFFFFFFF, 0xFFFFFFFE});
  host.ScriptRegister("SECAP_RXCTL", {0xFFFFFFFE});
  EXPECT_EQ(Nop(), kRxTimeout);
  EXPECT_EQ(Count("Sleep 100"), 51);
  const std::string timeout = "Timeout when waiting for SACI to clear the CMD_WORKING flag.";
  const struct {
    std::deque<std::uint64_t> flags;
    std::uint32_t timeoutMs;
    std::string outcome;
    long sleeps;
  } rows[] = {{{0x4}, 250, timeout, 3}, {{0x4}, 0, timeout, 0}, {{0x4, 0xFFFFFFFB}, 100, "ok", 1}};
  for (const auto& row : rows) {
    StartAt(0);
    host.ScriptRegister("SECAP_RXCTL", row.flags);
    EXPECT_EQ(ErrorOf([&] { saci.WaitForSaciToClearCmdWorkingFlag(row.timeoutMs, 100); }), row.outcome);
    EXPECT_EQ(Count("Sleep 100"), row.sleeps);
    EXPECT_EQ(Count("ReadReg SECAP_RXCTL"), row.sleeps + 1);
  }
}

TEST_F(SaciTransportTest, AnEchoThatDiffersIsRefusedAndALongResponseBeforeItIsRead) {
  const std::string id = "Received incorrect command ID from SACI.";
  const std::string sequence = "Received unexpected sequence number from SACI.";
  const std::string tooMany = "Received response from SACI with too many data words";
  const std::pair<SaciReply, std::string> rows[] = {{{.id = 2}, id},
                                                    {{.result = 0x84, .id = 2}, id},
                                                    {{.id = 2, .sequence = 0x77}, id},  // is looked at first
                                                    {{.sequence = 0x77}, sequence},
                                                    {{.sequence = 8}, sequence},  // of the command before
                                                    {{.result = 0x84, .sequence = 0x77}, sequence},
                                                    {{.result = 0x84}, "132"},
                                                    {{.data = Words(32, 0xA5A5A5A5)}, "0"},
                                                    {{.data = Words(33, 0x5A5A5A5A)}, tooMany},
                                                    {{.data = Words(255, 0x5A5A5A5A)}, tooMany}};
  for (const auto& [reply, outcome] : rows) {
    StartAt(9);
    host.ReplyOnce(9, reply);
    EXPECT_EQ(Erase(), outcome);
    EXPECT_EQ(host.currentCore, "CS_DAP_0");
    const std::string read = "ReadMemory SEC_AP @0x0 page 1 size 4 x" + std::to_string(reply.data.size());
    EXPECT_TRUE(outcome != tooMany || Count(read) == 0);
  }
  EXPECT_EQ(retained, Words(32, 0xA5A5A5A5));
}

RC_GTEST_FIXTURE_PROP(SaciTransportTest, ResultsAreThoseOfTheRightResponseOrNone,
                      (std::uint8_t result, const Words& data, bool isOfCommand, bool isOfNumber)) {
  SaciReply reply{.result = result, .data = data};
  if (!isOfCommand) reply.id = 10;
  if (!isOfNumber) reply.sequence = 2;
  StartAt(3);
  host.ReplyOnce(9, reply);
  const bool isTaken = isOfCommand && isOfNumber && data.size() <= 32;
  retained.clear();
  RC_ASSERT((Erase() == std::to_string(result)) == isTaken);
  RC_ASSERT(retained == (isTaken ? data : Words()));
  RC_ASSERT(host.currentCore == "CS_DAP_0");
}

TEST_F(SaciTransportTest, UndoingDoesNotHideTheFirstFailure) {
  host.FailNext("WriteMemory SEC_AP", "first");
  host.FailNext("SetCoreById CS_DAP_0", "second");
  EXPECT_EQ(Nop(), "first");
  EXPECT_EQ(host.currentCore, "SEC_AP");
}

// The setters' limits: plays/settings.play.
TEST_F(SaciTransportTest, SizesHaveTheRoomOfACommand) {
  const std::string error = "Internal error in Flash Loader: ";
  EXPECT_EQ(ErrorOf([&] { SaciInterface(&utility, 2049, 2049, 129); }),
            error + "Specified main flash sector size is too big.");
  EXPECT_EQ(ErrorOf([&] { SaciInterface(&utility, 2048, 2049, 129); }),
            error + "Specified CCFG size is too big.");
  EXPECT_EQ(ErrorOf([&] { saci.WriteCmdWords({}); }), error + "Size of SACI command cannot be zero.");
  EXPECT_EQ(Joined(host.calls), "") << "looked at before the host is asked";
}

TEST(SaciResultText, EveryCodeHasOne) {
  const char* const texts[] = {
      "Invalid command ID",
      "Invalid address parameter",
      "Invalid size parameter",
      "Invalid key parameter",
      "Flash hardware FSM error",
      "Parameter data buffer overflow (host must slow down)",
      "Command is not allowed due to restrictions",
      "Calculated CRC32 does not match expected CRC32",
      "Invalid password parameter",
      "Blank check detected one or more flash bits that were zero",
      "Invalid auth level parameter",
      "Invalid auth configuration",
      "Challenge response verification failed",
      "Calculated key hash does not match provided the expected key hash",
      "HSM failed to boot",
      "HSM FW update failed due to invalid HDR contents",
      "HSM FW update failed due to invalid version number (anti-rollback)",
      "HSM FW update failed during either signature verification or decryption",
  };
  for (unsigned code = 0; code <= 255; ++code) {
    const char* expected = code == 0     ? "Command executed successfully"
                           : code == 255 ? "Unspecified command failure"
                           : code >= 128 && code - 128 < std::size(texts)
                               ? texts[code - 128]
                               : "Unknown result code received from SACI";
    EXPECT_STREQ(SaciInterface::ConvertResultCodeToString(static_cast<std::uint8_t>(code)), expected) << code;
  }
}

}  // namespace
