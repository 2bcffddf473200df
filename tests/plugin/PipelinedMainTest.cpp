// The pipelined transfer of MAIN flash: its window of two chunks, and what it takes for an acknowledgement.

#include "ChannelTest.h"
#include "DeviceTest.h"

namespace {

const std::string kSequenceError = "Received unexpected sequence number from SACI during flash programming";

// Chunk i is the two words 10 * i and 10 * i + 1.
Bytes Chunks(std::uint32_t count) {
  Words words;
  for (std::uint32_t i = 0; i < count; ++i) words.insert(words.end(), {10 * i, 10 * i + 1});
  return BytesOf(words);
}

struct PipelinedMainTest : ChannelTest {
  std::string Program(const Bytes& data, unsigned long chunk = 8) {
    return ResultOf([&] { return saci.ProgMainPipelined(0x800, data, chunk); });
  }

  // The transfers after the header as letters: c a chunk, a of an acknowledgement.
  std::string Flow() const {
    std::string flow;
    for (const std::string& line : host.calls) {
      if (line.starts_with("ReadMemory SEC_AP")) flow += 'a';
      if (line.starts_with("WriteMemory SEC_AP @0x0 page 1 size 4 x2:") &&
          !line.ends_with("5C17E94B 00000800"))
        flow += 'c';
    }
    return flow;
  }
};

TEST_F(PipelinedMainTest, AtMostTwoChunksAreUnacknowledged) {
  const struct {
    unsigned first, chunks;
    const char* flow;
  } rows[] = {{10, 4, "ccacacaa"},
              {0, 1, "ca"},
              {0, 4, "caccacaa"},
              {1, 1, "ca"},
              {1, 2, "ccaa"},
              {255, 1, "ca"},
              {10, 0, ""},
              {0, 0, ""},
              {250, 7, "ccacacacacacaa"}};  // the last acknowledgement is 0, taken as 256
  for (const auto& row : rows) {
    StartAt(row.first);
    EXPECT_EQ(Program(Chunks(row.chunks)), "0");
    EXPECT_EQ(host.commands.at(0).words, (Words{0x0000000F | row.first << 8, 0x5C17E94B, 0x800}));
    EXPECT_EQ(Flow(), row.flow) << "from " << row.first;
    for (std::uint32_t i = 0; i < row.chunks; ++i)
      EXPECT_EQ(host.commands.at(0).streamed.at(i), (Words{10 * i, 10 * i + 1}));
    saci.Nop();
    EXPECT_EQ(host.commands.back().Sequence(), (row.first + 1) % 256) << "the stream uses one number";
  }
}

TEST_F(PipelinedMainTest, NoFlagIsReadOrWrittenBetweenChunks) {
  StartAt(10);
  ASSERT_EQ(Program(Chunks(2)), "0");
  EXPECT_EQ(Joined({host.calls.begin() + 12, host.calls.begin() + 21}),
            Joined({"SetCoreById SEC_AP", "IsConnected",
                    "WriteMemory SEC_AP @0x0 page 1 size 4 x2: 00000000 00000001", "SetCoreById CS_DAP_0",
                    "SetCoreById SEC_AP", "IsConnected",
                    "WriteMemory SEC_AP @0x0 page 1 size 4 x2: 0000000A 0000000B", "SetCoreById CS_DAP_0",
                    "ReadReg SECAP_RXCTL"}));
}

TEST_F(PipelinedMainTest, AnAcknowledgementIsCheckedInThisOrder) {
  const std::string id = "Received response from SACI with unexpected command id";
  const std::string result = "Received response from SACI with unsuccesfull result";
  const std::string count = "Received response from SACI with non-zero data word count";
  const struct {
    std::vector<SaciReply> replies;  // of the first chunks
    std::string outcome;
    const char* flow;
  } rows[] = {
      {{{.result = 0x84, .data = {1}, .id = 14, .sequence = 99}}, id, "ccaa"},
      {{{.result = 0x84, .data = {1}, .sequence = 99}}, result, "ccaa"},
      {{{.result = 0x01}}, result, "cca"},
      {{{.data = {1}, .sequence = 99}}, count, "ccaa"},
      {{{.sequence = 99}}, kSequenceError, "cca"},
      {{{.sequence = 12}}, kSequenceError, "cca"},  // ahead of what was written
      {{{.sequence = 9}}, kSequenceError, "cca"},
      {{{.sequence = 11}}, kSequenceError, "ccacca"},  // for both chunks; the 11 after it is then one behind
      {{{.latePolls = 10}}, "0", "ccacacaa"},
      {{{.latePolls = 11}}, "Timeout when waiting for SEC-AP RX data to be ready.", "cc"},
      // One may stand for two, and the last but one may come twice.
      {{{.silent = true}, {}, {.silent = true}, {}}, "0", "ccacca"},
      {{{.sequence = 11}, {.sequence = 11}, {.sequence = 12}, {.sequence = 13}}, kSequenceError, "ccacca"},
  };
  for (const auto& row : rows) {
    StartAt(10);
    for (const SaciReply& reply : row.replies) host.ReplyOnce(15, reply);
    EXPECT_EQ(Program(Chunks(4)), row.outcome) << row.flow;
    EXPECT_EQ(Flow(), row.flow) << row.outcome;
  }
  StartAt(10);
  for (const std::uint8_t number : Bytes{11, 11, 12}) host.ReplyOnce(15, {.sequence = number});
  EXPECT_EQ(Program(Chunks(3)), "0");
  EXPECT_EQ(Flow(), "ccacaa");
  StartAt(250);  // 250 to 256 are accepted, the one numbered 1 is not, and nothing is sent after the failure
  EXPECT_EQ(Program(Chunks(10)), kSequenceError);
  EXPECT_EQ(Flow(), "ccacacacacacacaca");
}

TEST_F(PipelinedMainTest, APartChunkIsRefusedBeforeAnythingIsSent) {
  const std::string divisible =
      "Internal error in Flash Loader: The size of flash data to be programmed must be divisible by ";
  EXPECT_EQ(Program(Bytes(300), 256), divisible + "256");
  EXPECT_EQ(Program(Chunks(1), 16), divisible + "16");
  EXPECT_EQ(Program(Chunks(1), 0),
            "Internal error in Flash Loader: The chunk size of flash data cannot be zero.");
  EXPECT_EQ(Joined(host.calls), "");
  saci.Nop();
  EXPECT_EQ(host.commands.back().Sequence(), 0);
}

}  // namespace
