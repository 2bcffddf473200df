#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ErrorOf.h"
#include "FakeHost.h"
#include "SaciInterface.h"

namespace {

constexpr std::uint8_t kFirmware = 33;
const std::string kStarted = "Info Programming of HSM FW image started...";
const std::string kCompleted = "Info Programming of the HSM FW image was completed successfully";
const std::string kUnexpectedId = "Received response from SACI with unexpected command id";

// Little-endian bytes of words, all below 256.
Bytes Image(const Bytes& words) {
  Bytes bytes;
  for (const std::uint8_t word : words) bytes.insert(bytes.end(), {word, 0, 0, 0});
  return bytes;
}

// A first record of two leading words and 5 bytes, then records of 4, 0 and 1 bytes.
const Bytes kChain = Image({0xA0, 5, 0xA1, 0xA2, 4, 0xB1, 0, 1, 0xD1});

struct HsmCommandsTest : testing::Test {
  HsmCommandsTest() { host.ForgetCalls(); }

  std::string Program(const Bytes& image) {
    return ErrorOf([&] { EXPECT_EQ(saci.ProgHsmFw(image), 0); });
  }
  std::string ProgramRecords(const Bytes& image) {
    return ErrorOf([&] { EXPECT_EQ(saci.ProgHsmFwBleMid(image), 0); });
  }

  FakeHost host;
  IFlashProgrammerUtility2 utility = host.Utility();
  SaciInterface saci{&utility, 2048, 2048, 128};
};

TEST_F(HsmCommandsTest, TheImageIsOneTransfer) {
  host.workingPolls = 1;
  EXPECT_EQ(Program(Image({1, 2, 3})), "ok");
  EXPECT_EQ(Joined(host.Plot()),
            Joined({kStarted, "SACI 33/0000 00000003", "Sleep 100", "stream 3", kCompleted}));
  EXPECT_EQ(host.commands[0].words, (Words{0x00000021, 3}));
  EXPECT_EQ(host.commands[0].streamed, (std::vector<Words>{{1, 2, 3}}));
}

TEST_F(HsmCommandsTest, TheRomIsGivenASecondToTakeTheCommandAndFiveToUpdate) {
  host.workingPolls = 11;
  EXPECT_EQ(Program(Image({1})), "Timeout when waiting for SACI to clear the CMD_WORKING flag.");
  EXPECT_TRUE(host.commands[0].streamed.empty());
  utility.ResetTarget(0);
  host.workingPolls = 0;
  host.ReplyOnce(kFirmware, {.latePolls = 50});
  EXPECT_EQ(Program(Image({1})), "ok");
  host.ReplyOnce(kFirmware, {.latePolls = 51});
  EXPECT_EQ(Program(Image({1})), "Timeout when waiting for SEC-AP RX data to be ready.");
}

TEST_F(HsmCommandsTest, TheImageIsWholeWords) {
  const std::string error = "The size of HSM image to be programmed must be divisible by 4";
  EXPECT_EQ(Program(Bytes(10)), error);
  EXPECT_EQ(ProgramRecords(Bytes(10)), error);
  EXPECT_EQ(Joined(host.calls), "");
}

TEST_F(HsmCommandsTest, ResultsOfTheUpdateHaveTheirOwnTexts) {
  const struct {
    SaciReply reply;
    std::string outcome;
  } rows[] = {
      {{.result = 130}, "Invalid HSM FW image size"},
      {{.result = 132}, "HSM FW update failed"},
      {{.result = 142}, "HSM FW has been updated but HSM failed to boot"},
      {{.result = 143}, "HSM FW image header is invalid"},
      {{.result = 144}, "Incorrect HSM FW version"},
      {{.result = 145}, "HSM FW image failed to be verified"},
      {{.result = 255}, "HSM Command Failed"},
      {{.result = 131}, "ok"},  // only those of the table fail
      {{.result = 1}, "ok"},
      {{.result = 134}, "ok"},
      {{.result = 130, .data = {1}, .id = 34}, kUnexpectedId},
      {{.result = 130, .data = {1}}, "Invalid HSM FW image size"},
      {{.result = 131, .data = {1}}, "Received response from SACI with non-zero data word count"},
      {{.sequence = 99}, "ok"},  // the number is not looked at here
  };
  for (const auto& row : rows) {
    host.ReplyOnce(kFirmware, row.reply);
    EXPECT_EQ(Program(Image({1})), row.outcome);
    host.ReplyOnce(kFirmware, row.reply);
    EXPECT_EQ(ProgramRecords(kChain), row.outcome);
  }
}

TEST_F(HsmCommandsTest, RecordsAreSentOneByOne) {
  host.workingPolls = 1;
  EXPECT_EQ(ProgramRecords(kChain), "ok");
  // After the command and after each of the four records the flag is waited for.
  EXPECT_EQ(Joined(host.Plot()),
            Joined({kStarted, "SACI 33/0000 00000009", "Sleep 100", "stream 4", "Sleep 100", "stream 2",
                    "Sleep 100", "stream 1", "Sleep 100", "stream 2", "Sleep 100", kCompleted}));
  EXPECT_EQ(host.commands[0].streamed,
            (std::vector<Words>{{0xA0, 5, 0xA1, 0xA2}, {4, 0xB1}, {0}, {1, 0xD1}}));
}

TEST_F(HsmCommandsTest, TheRomIsGivenASecondForEachRecord) {
  // Idle for the command, working through all polls of the first record and idle one poll too late.
  std::deque<std::uint64_t> flags(11, 4);
  flags.push_front(0);
  flags.push_back(0);
  host.ScriptRegister("SECAP_RXCTL", flags);
  EXPECT_EQ(ProgramRecords(kChain), "Timeout when waiting for SACI to clear the CMD_WORKING flag.");
  EXPECT_EQ(host.commands[0].streamed.size(), 1U);
}

TEST_F(HsmCommandsTest, TheLastRecordIsFollowedByFiveSecondsForTheUpdate) {
  // Two looks at the flags belong to the last record.
  host.ReplyOnce(kFirmware, {.latePolls = 2 + 50});
  EXPECT_EQ(ProgramRecords(kChain), "ok");
  host.ReplyOnce(kFirmware, {.latePolls = 2 + 51});
  EXPECT_EQ(ProgramRecords(kChain), "Timeout when waiting for SEC-AP RX data to be ready.");
}

TEST_F(HsmCommandsTest, AnEarlyResponseStopsTheRecords) {
  for (const unsigned pieces : {1U, 2U, 3U}) {
    utility.ResetTarget(0);
    host.ForgetCalls();
    host.ReplyOnce(kFirmware, {.result = 143, .earlyAfterPieces = pieces});
    EXPECT_EQ(ProgramRecords(kChain), "HSM FW image header is invalid");
    EXPECT_EQ(host.commands[0].streamed.size(), pieces);
  }
}

TEST_F(HsmCommandsTest, AnEarlyResponseThatIsNoErrorLetsTheRecordsGoOn) {
  host.ReplyOnce(kFirmware, {.earlyAfterPieces = 2});
  EXPECT_EQ(ProgramRecords(kChain), "ok");
  EXPECT_EQ(host.commands[0].streamed.size(), 4U);
}

// Half an update is worse than none.
TEST_F(HsmCommandsTest, ARecordThatRunsPastTheImageIsRefusedBeforeAnythingIsSent) {
  const struct {
    Bytes image;
    const char* offset;  // of the record
  } rows[] = {{Image({}), "0"},
              {Image({1}), "0"},
              {Image({0xA0, 5, 1}), "0"},
              {Image({0xA0, 1, 1, 9}), "12"},
              {{1, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 1, 0, 0, 0}, "0"},
              {{0, 0, 0, 0, 0, 0, 0, 0, 0xFD, 0xFF, 0xFF, 0xFF, 9, 0, 0, 0}, "8"}};
  for (const auto& row : rows) {
    EXPECT_EQ(ProgramRecords(row.image), std::string("The record at offset ") + row.offset +
                                             " of the HSM image runs past the end of the image");
    EXPECT_TRUE(host.CommandIds().empty());
  }
}

struct HsmInfoTest : HsmCommandsTest {
  std::string SystemInformation(SaciReply reply, std::string& text) {
    host.ReplyOnce(34, std::move(reply));
    return ErrorOf([&] { EXPECT_EQ(saci.ReadHsmSysInfo(&text), 0); });
  }
  std::string UpdateStatus(SaciReply reply, std::string& text) {
    host.ReplyOnce(35, std::move(reply));
    return ErrorOf([&] { EXPECT_EQ(saci.ReadHsmUpdateStatus(&text), 0); });
  }
};

TEST_F(HsmInfoTest, TheVersionIsInTheEighthDataWord) {
  std::string text = "before";
  EXPECT_EQ(SystemInformation({.data = {1, 2, 3, 4, 5, 6, 7, 0xFF0A0B0C, 9}}, text), "ok");
  EXPECT_EQ(text, "FW Version: 10.11.12");
  EXPECT_EQ(Joined(host.Plot()), Joined({"SACI 34/0000", "Info HSM Information: FW Version: 10.11.12"}));
}

TEST_F(HsmInfoTest, SystemInformationIsCheckedInThisOrder) {
  const Words nine(9);
  const struct {
    SaciReply reply;
    std::string outcome;
  } rows[] = {
      {{.result = 142, .id = 33}, kUnexpectedId},
      {{.result = 142},
       "HSM failed to boot. Make sure to program a valid HSM image under the \"HSM Image\" section."},
      {{.result = 134}, "Command is not allowed due to restrictions"},
      {{.result = 143, .data = nine}, "HSM FW update failed due to invalid HDR contents"},
      {{.result = 200}, "Unknown result code received from SACI"},
      {{.data = Words(8)}, "Received response from SACI with unexpected data word count"},
      {{.data = Words(10)}, "Received response from SACI with unexpected data word count"},
      {{.data = nine, .latePolls = 10}, "ok"},
      {{.data = nine, .latePolls = 11}, "Timeout when waiting for SEC-AP RX data to be ready."},
  };
  for (const auto& row : rows) {
    std::string text = "before";
    EXPECT_EQ(SystemInformation(row.reply, text), row.outcome);
    EXPECT_EQ(text, row.outcome == "ok" ? "FW Version: 0.0.0" : "before");
  }
}

TEST_F(HsmInfoTest, EveryUpdateStatusIsAppendedAsText) {
  const struct {
    std::uint32_t status;
    std::string text;
  } rows[] = {{0, "Regular boot w/o a new image."},
              {1, "Requested update was successful."},
              {2, "ROM panic mode due to fault injection."},
              {3, "Invalid image detected."},
              {4, "The target image failed to verify."},
              {5, "Requested image update process failed."},
              {6, "SCFG configuration is invalid."},
              {7, "HSM FW failed to boot."},
              {8, "Unknown status! 8"},
              {0xFFFFFFFF, "Unknown status! 4294967295"}};
  for (const auto& row : rows) {
    std::string text = "Earlier. ";
    host.ForgetCalls();
    EXPECT_EQ(UpdateStatus({.data = {row.status}}, text), "ok");
    EXPECT_EQ(text, "Earlier. " + row.text);
    EXPECT_EQ(Joined(host.Plot()), Joined({"SACI 35/0000", "Info Update status: Earlier. " + row.text}));
  }
}

TEST_F(HsmInfoTest, TheUpdateStatusIsCheckedInThisOrder) {
  const struct {
    SaciReply reply;
    std::string outcome;
  } rows[] = {
      {{.result = 1, .id = 34}, kUnexpectedId},
      {{.result = 142}, "Failed to read HSM FW Update Status from target"},
      {{.result = 1, .data = {1}}, "Failed to read HSM FW Update Status from target"},
      {{}, "Received response from SACI with unexpected data word count"},
      {{.data = {1, 2}}, "Received response from SACI with unexpected data word count"},
      {{.data = {1}, .latePolls = 11}, "Timeout when waiting for SEC-AP RX data to be ready."},
  };
  for (const auto& row : rows) {
    std::string text = "before";
    EXPECT_EQ(UpdateStatus(row.reply, text), row.outcome);
    EXPECT_EQ(text, "before");
  }
}

}  // namespace
