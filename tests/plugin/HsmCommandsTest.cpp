// HSM firmware in its two streaming forms.

#include "ChannelTest.h"

namespace {

constexpr std::uint8_t kFirmware = 33;
const std::string kStarted = "Info Programming of HSM FW image started...";
const std::string kCompleted = "Info Programming of the HSM FW image was completed successfully";
const std::string kUnexpectedId = "Received response from SACI with unexpected command id";
const std::string kStillWorking = "Timeout when waiting for SACI to clear the CMD_WORKING flag.";
const std::string kNoResponse = "Timeout when waiting for SEC-AP RX data to be ready.";

// Little-endian bytes of words, all below 256.
Bytes Image(const Bytes& words) {
  Bytes bytes;
  for (const std::uint8_t word : words) bytes.insert(bytes.end(), {word, 0, 0, 0});
  return bytes;
}

// A first record of two leading words and 5 bytes, then records of 4, 0 and 1 bytes.
const Bytes kChain = Image({0xA0, 5, 0xA1, 0xA2, 4, 0xB1, 0, 1, 0xD1});

struct HsmCommandsTest : ChannelTest {
  std::string Program(const Bytes& image) {
    return ResultOf([&] { return saci.ProgHsmFw(image); });
  }
  std::string ProgramRecords(const Bytes& image) {
    return ResultOf([&] { return saci.ProgHsmFwBleMid(image); });
  }
};

// The flag is waited for after the command and after each record.
TEST_F(HsmCommandsTest, AnImageIsOneTransferOrOneARecord) {
  host.workingPolls = 1;
  EXPECT_EQ(Program(Image({1, 2, 3})), "0");
  EXPECT_EQ(Joined(host.events),
            Joined({kStarted, "SACI 33/0000 00000003", "Sleep 100", "stream 3", kCompleted}));
  EXPECT_EQ(host.commands[0].streamed, (std::vector<Words>{{1, 2, 3}}));
  StartAt(0);
  EXPECT_EQ(ProgramRecords(kChain), "0");
  EXPECT_EQ(Joined(host.events),
            Joined({kStarted, "SACI 33/0000 00000009", "Sleep 100", "stream 4", "Sleep 100", "stream 2",
                    "Sleep 100", "stream 1", "Sleep 100", "stream 2", "Sleep 100", kCompleted}));
  EXPECT_EQ(host.commands[0].streamed,
            (std::vector<Words>{{0xA0, 5, 0xA1, 0xA2}, {4, 0xB1}, {0}, {1, 0xD1}}));
}

TEST_F(HsmCommandsTest, TheRomIsGivenASecondToTakeWordsAndFiveToUpdate) {
  host.workingPolls = 11;
  EXPECT_EQ(Program(Image({1})), kStillWorking);
  EXPECT_TRUE(host.commands[0].streamed.empty());
  host.workingPolls = 0;
  for (const unsigned late : {50U, 51U}) {
    StartAt(0);
    host.ReplyOnce(kFirmware, {.latePolls = late});
    EXPECT_EQ(Program(Image({1})), late == 50 ? "0" : kNoResponse);
    StartAt(0);
    host.ReplyOnce(kFirmware, {.latePolls = late + 2});  // two looks at the flags belong to the last record
    EXPECT_EQ(ProgramRecords(kChain), late == 50 ? "0" : kNoResponse);
  }
  // Idle for the command, working through all polls of the first record and idle one poll too late.
  StartAt(0);
  std::deque<std::uint64_t> flags(11, 4);
  flags.push_front(0);
  flags.push_back(0);
  host.ScriptRegister("SECAP_RXCTL", flags);
  EXPECT_EQ(ProgramRecords(kChain), kStillWorking);
  EXPECT_EQ(host.commands[0].streamed.size(), 1U);
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
      {{.result = 131}, "0"},  // only those of the table fail
      {{.result = 1}, "0"},
      {{.result = 130, .data = {1}, .id = 34}, kUnexpectedId},
      {{.result = 130, .data = {1}}, "Invalid HSM FW image size"},
      {{.result = 131, .data = {1}}, "Received response from SACI with non-zero data word count"},
      {{.sequence = 99}, "0"},  // the number is not looked at here
  };
  for (const auto& row : rows) {
    host.ReplyOnce(kFirmware, row.reply);
    EXPECT_EQ(Program(Image({1})), row.outcome);
    host.ReplyOnce(kFirmware, row.reply);
    EXPECT_EQ(ProgramRecords(kChain), row.outcome);
  }
}

TEST_F(HsmCommandsTest, AnEarlyResponseStopsTheRecordsIfItIsAnError) {
  for (const std::uint8_t result : Bytes{143, 0}) {
    StartAt(0);
    host.ReplyOnce(kFirmware, {.result = result, .earlyAfterPieces = 2});
    EXPECT_EQ(ProgramRecords(kChain), result == 0 ? "0" : "HSM FW image header is invalid");
    EXPECT_EQ(host.commands[0].streamed.size(), result == 0 ? 4U : 2U);
  }
}

// Half an update is worse than none: nothing is sent.
TEST_F(HsmCommandsTest, AnImageThatIsNotWholeWordsIsRefused) {
  const std::string odd = "The size of HSM image to be programmed must be divisible by 4";
  EXPECT_EQ(Program(Bytes(10)), odd);
  EXPECT_EQ(ProgramRecords(Bytes(10)), odd);
  EXPECT_EQ(Joined(host.calls), "");
}

}  // namespace
