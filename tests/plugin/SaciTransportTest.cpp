#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ErrorOf.h"
#include "FakeHost.h"
#include "SaciInterface.h"

namespace {

using Lines = std::vector<std::string>;

// The channel over a fake host, built as the device builds it; the calls of the building are forgotten.
struct SaciTransportTest : testing::Test {
  SaciTransportTest() { host.ForgetCalls(); }

  long Count(const std::string& line) const { return std::count(host.calls.begin(), host.calls.end(), line); }

  FakeHost host;
  IFlashProgrammerUtility2 utility = host.Utility();
  SaciInterface saci{&utility, 2048, 2048, 128};
};

// One transfer of words, with SEC_AP current for no longer than it takes.
Lines Sent(const std::string& transfer, bool connects) {
  Lines lines = {"SetCoreById SEC_AP", "IsConnected"};
  if (connects) lines.push_back("Connect false");
  if (!transfer.empty()) lines.push_back(transfer);
  lines.push_back("SetCoreById CS_DAP_0");
  return lines;
}

Lines Concat(const std::vector<Lines>& parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

TEST_F(SaciTransportTest, AOneWordCommandLeavesTheStartFlagSet) {
  EXPECT_EQ(saci.Nop(), 0);
  EXPECT_EQ(Joined(host.calls),
            Joined(Concat({{"ReadReg SECAP_TXCTL", "WriteReg SECAP_TXCTL 0x2"},
                           Sent("WriteMemory SEC_AP @0x0 page 1 size 4 x1: 00000001", true),
                           {"ReadReg SECAP_RXCTL"},
                           Sent("ReadMemory SEC_AP @0x0 page 1 size 4 x1", false),
                           Sent("", false)})));  // no data words: an empty range is no transfer
}

TEST_F(SaciTransportTest, TheRestOfACommandAndOfAResponseAreOneTransferEach) {
  host.connectedCores.insert("SEC_AP");
  host.ReplyOnce(9, {.data = {0x11111111, 0x22222222, 0x33333333}});
  Words retained;
  EXPECT_EQ(saci.EraseChip(true, false, &retained), 0);
  EXPECT_EQ(retained, (Words{0x11111111, 0x22222222, 0x33333333}));
  EXPECT_EQ(Joined(host.calls),
            Joined(Concat({{"ReadReg SECAP_TXCTL", "WriteReg SECAP_TXCTL 0x2"},
                           Sent("WriteMemory SEC_AP @0x0 page 1 size 4 x1: 00010009", false),
                           {"WriteReg SECAP_TXCTL 0x0"},
                           Sent("WriteMemory SEC_AP @0x0 page 1 size 4 x1: 5C17E94B", false),
                           {"ReadReg SECAP_RXCTL"},
                           Sent("ReadMemory SEC_AP @0x0 page 1 size 4 x1", false),
                           Sent("ReadMemory SEC_AP @0x0 page 1 size 4 x3", false)})));
}

TEST_F(SaciTransportTest, SequenceNumbersWrapAndRestart) {
  for (int i = 0; i < 257; ++i) ASSERT_EQ(saci.Nop(), 0);
  EXPECT_EQ(host.commands[255].words, Words{0x0000FF01});
  EXPECT_EQ(host.commands[256].words, Words{0x00000001});
  saci.Nop();
  saci.ResetInterfaceState();
  saci.Nop();
  EXPECT_EQ(host.commands.back().words, Words{0x00000001});
}

TEST_F(SaciTransportTest, WaitsAtMostASecondForTheTxWordToBeTaken) {
  host.txFullPolls = 10;
  EXPECT_EQ(saci.Nop(), 0);
  EXPECT_EQ(Count("ReadReg SECAP_TXCTL"), 11);
  EXPECT_EQ(Count("Sleep 100"), 10);

  host.ForgetCalls();
  host.txFullPolls = 11;
  EXPECT_EQ(ErrorOf([&] { saci.Nop(); }), "Timeout when waiting for SEC-AP TX data to be empty.");
  Lines polls = {"ReadReg SECAP_TXCTL"};
  for (int i = 0; i < 10; ++i) polls.insert(polls.end(), {"Sleep 100", "ReadReg SECAP_TXCTL"});
  EXPECT_EQ(Joined(host.calls), Joined(polls)) << "nothing is written";

  saci.Nop();
  EXPECT_EQ(host.commands.back().Sequence(), 2) << "the failed command had used its number";
}

TEST_F(SaciTransportTest, WaitsAtMostFiveSecondsForTheResponse) {
  host.ReplyOnce(1, {.latePolls = 50});
  EXPECT_EQ(saci.Nop(), 0);
  EXPECT_EQ(Count("ReadReg SECAP_RXCTL"), 51);
  EXPECT_EQ(Count("Sleep 100"), 50);

  host.ForgetCalls();
  host.ReplyOnce(1, {.latePolls = 51});
  EXPECT_EQ(ErrorOf([&] { saci.Nop(); }), "Timeout when waiting for SEC-AP RX data to be ready.");
  EXPECT_EQ(Count("ReadReg SECAP_RXCTL"), 51);
  EXPECT_EQ(Count("Sleep 100"), 50);
}

TEST_F(SaciTransportTest, OnlyTheFlagsAwaitedCount) {
  host.ScriptRegister("SECAP_TXCTL", {0xFFFFFFFF, 0xFFFFFFFE});
  EXPECT_EQ(saci.Nop(), 0);
  EXPECT_EQ(Count("Sleep 100"), 1);
  host.ScriptRegister("SECAP_RXCTL", {0xFFFFFFFE, 0xFFFFFFFE});
  EXPECT_EQ(ErrorOf([&] { saci.Nop(); }), "Timeout when waiting for SEC-AP RX data to be ready.");
}

TEST_F(SaciTransportTest, AWaitEndsBelowZeroToo) {
  host.ScriptRegister("SECAP_RXCTL", {0x4});
  EXPECT_EQ(ErrorOf([&] { saci.WaitForSaciToClearCmdWorkingFlag(250, 100); }),
            "Timeout when waiting for SACI to clear the CMD_WORKING flag.");
  EXPECT_EQ(Count("Sleep 100"), 3);
  host.ForgetCalls();
  EXPECT_EQ(ErrorOf([&] { saci.WaitForSaciToClearCmdWorkingFlag(0, 100); }),
            "Timeout when waiting for SACI to clear the CMD_WORKING flag.");
  EXPECT_EQ(Joined(host.calls), Joined({"ReadReg SECAP_RXCTL"}));
  host.ScriptRegister("SECAP_RXCTL", {0x4, 0xFFFFFFFB});
  host.ForgetCalls();
  saci.WaitForSaciToClearCmdWorkingFlag(100, 100);
  EXPECT_EQ(Joined(host.calls), Joined({"ReadReg SECAP_RXCTL", "Sleep 100", "ReadReg SECAP_RXCTL"}));
}

TEST_F(SaciTransportTest, AnEchoThatDiffersIsRefused) {
  const std::string id = "Received incorrect command ID from SACI.";
  const std::string sequence = "Received unexpected sequence number from SACI.";
  const struct {
    SaciReply reply;
    std::string outcome;
  } rows[] = {{{.id = 2}, id},
              {{.result = 0x84, .id = 2}, id},
              {{.id = 2, .sequence = 0x77}, id},  // the id is looked at first
              {{.sequence = 0x77}, sequence},
              {{.result = 0x84, .sequence = 0x77}, sequence}};
  for (const auto& row : rows) {
    host.ReplyOnce(1, row.reply);
    EXPECT_EQ(ErrorOf([&] { saci.Nop(); }), row.outcome);
    EXPECT_EQ(host.currentCore, "CS_DAP_0");
  }
  // One late: the number of the command before.
  host.ReplyOnce(1, {.sequence = static_cast<std::uint8_t>(std::size(rows) - 1)});
  EXPECT_EQ(ErrorOf([&] { saci.Nop(); }), sequence);
  EXPECT_EQ(saci.Nop(), 0);
}

TEST_F(SaciTransportTest, AResponseLongerThanItsRecordIsRefusedBeforeItIsRead) {
  Words retained;
  host.ReplyOnce(9, {.data = Words(32, 0xA5A5A5A5)});
  EXPECT_EQ(saci.EraseChip(true, false, &retained), 0);
  EXPECT_EQ(retained, Words(32, 0xA5A5A5A5));
  for (const std::size_t count : {33U, 255U}) {
    host.ForgetCalls();
    host.ReplyOnce(9, {.data = Words(count, 0x5A5A5A5A)});
    EXPECT_EQ(ErrorOf([&] { saci.EraseChip(true, false, &retained); }),
              "Received response from SACI with too many data words");
    EXPECT_EQ(retained, Words(32, 0xA5A5A5A5));
    EXPECT_EQ(host.currentCore, "CS_DAP_0");
    EXPECT_EQ(Count("ReadMemory SEC_AP @0x0 page 1 size 4 x" + std::to_string(count)), 0);
    utility.ResetTarget(0);  // takes the unread words away
  }
}

TEST_F(SaciTransportTest, AFailedHostCallKeepsItsTextAndLeavesTheDapCurrent) {
  for (const char* text : {"probe unplugged", ""}) {
    for (unsigned nth = 1;; ++nth) {
      ASSERT_LT(nth, 100U);
      host.connectedCores = {"CS_DAP_0"};
      utility.ResetTarget(0);
      host.ForgetCalls();
      host.FailCall(nth, text);
      Words retained;
      host.ReplyOnce(9, {.data = {1}});
      const std::string outcome = ErrorOf([&] { saci.EraseChip(true, false, &retained); });
      if (host.calls.size() < nth) {
        EXPECT_EQ(outcome, "ok");
        EXPECT_EQ(nth, 22U) << "the exchange has 21 calls";
        host.FailCall(0);
        break;
      }
      EXPECT_EQ(outcome, text) << host.calls[nth - 1];
      const bool restoreFailed = host.calls[nth - 1] == "SetCoreById CS_DAP_0";
      EXPECT_EQ(host.currentCore, restoreFailed ? "SEC_AP" : "CS_DAP_0") << host.calls[nth - 1];
      host.currentCore = "CS_DAP_0";
    }
  }
}

TEST_F(SaciTransportTest, UndoingDoesNotHideTheFirstFailure) {
  host.FailNext("WriteMemory SEC_AP", "first");
  host.FailNext("SetCoreById CS_DAP_0", "second");
  EXPECT_EQ(ErrorOf([&] { saci.Nop(); }), "first");
}

TEST_F(SaciTransportTest, AnEmptyCommandIsAnInternalError) {
  EXPECT_EQ(ErrorOf([&] { saci.WriteCmdWords({}); }),
            "Internal error in Flash Loader: Size of SACI command cannot be zero.");
  EXPECT_EQ(Joined(host.calls), "");
}

TEST_F(SaciTransportTest, SizesHaveTheRoomOfACommand) {
  const struct {
    void (SaciInterface::*set)(std::uint32_t);
    std::uint32_t limit;
    const char* what;
  } rows[] = {{&SaciInterface::setMainSectorSize, 2048, "main flash sector size"},
              {&SaciInterface::setCcfgSize, 2048, "CCFG size"},
              {&SaciInterface::setScfgSize, 1024, "SCFG size"},
              {&SaciInterface::setCcfgUserRecordSize, 128, "CCFG user record size"}};
  for (const auto& row : rows) {
    const std::string error =
        std::string("Internal error in Flash Loader: Specified ") + row.what + " is too big.";
    EXPECT_EQ(ErrorOf([&] { (saci.*row.set)(0); }), "ok") << row.what;
    EXPECT_EQ(ErrorOf([&] { (saci.*row.set)(row.limit); }), "ok") << row.what;
    EXPECT_EQ(ErrorOf([&] { (saci.*row.set)(row.limit + 1); }), error);
    EXPECT_EQ(ErrorOf([&] { (saci.*row.set)(0xFFFFFFFF); }), error);
  }
  EXPECT_EQ(ErrorOf([&] { SaciInterface(&utility, 2049, 2049, 129); }),
            "Internal error in Flash Loader: Specified main flash sector size is too big.");
  EXPECT_EQ(ErrorOf([&] { SaciInterface(&utility, 2048, 2049, 129); }),
            "Internal error in Flash Loader: Specified CCFG size is too big.");
  EXPECT_EQ(Joined(host.calls), "") << "sizes are looked at before the host is asked";
}

TEST(SaciResultText, EveryCodeHasOne) {
  const struct {
    unsigned first, last;
    const char* text;
  } rows[] = {
      {0, 0, "Command executed successfully"},
      {1, 127, "Unknown result code received from SACI"},
      {128, 128, "Invalid command ID"},
      {129, 129, "Invalid address parameter"},
      {130, 130, "Invalid size parameter"},
      {131, 131, "Invalid key parameter"},
      {132, 132, "Flash hardware FSM error"},
      {133, 133, "Parameter data buffer overflow (host must slow down)"},
      {134, 134, "Command is not allowed due to restrictions"},
      {135, 135, "Calculated CRC32 does not match expected CRC32"},
      {136, 136, "Invalid password parameter"},
      {137, 137, "Blank check detected one or more flash bits that were zero"},
      {138, 138, "Invalid auth level parameter"},
      {139, 139, "Invalid auth configuration"},
      {140, 140, "Challenge response verification failed"},
      {141, 141, "Calculated key hash does not match provided the expected key hash"},
      {142, 142, "HSM failed to boot"},
      {143, 143, "HSM FW update failed due to invalid HDR contents"},
      {144, 144, "HSM FW update failed due to invalid version number (anti-rollback)"},
      {145, 145, "HSM FW update failed during either signature verification or decryption"},
      {146, 254, "Unknown result code received from SACI"},
      {255, 255, "Unspecified command failure"},
  };
  for (const auto& row : rows) {
    for (unsigned code = row.first; code <= row.last; ++code)
      EXPECT_STREQ(SaciInterface::ConvertResultCodeToString(static_cast<SACI_CMD_RESULT_T>(code)), row.text)
          << code;
  }
}

}  // namespace
