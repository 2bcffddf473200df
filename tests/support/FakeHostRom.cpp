#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "FakeHost.h"

// The chip's side of the fake host: the ROM behind the security access port, which takes commands and streams
// word by word and queues its responses.

namespace {

constexpr std::uint32_t kKey = 0x5C17E94B;
constexpr std::uint8_t kIdPipelined = 15;
constexpr std::uint8_t kIdHsmFirmware = 33;

bool IsKeyed(std::uint8_t id) {
  return id == 9 || (id >= 12 && id <= 15) || id == 25 || id == 26 || id == 28;
}

constexpr std::size_t kWordsTold = 6;  // header included

std::string Told(const SaciCommand& command) {
  std::string line = fmt::format("SACI {}/{:04X}", command.Id(), command.Specific());
  if (command.words.size() > kWordsTold) return fmt::format("{} {} words", line, command.words.size());
  for (std::size_t i = 1; i < command.words.size(); ++i) line += fmt::format(" {:08X}", command.words[i]);
  return line;
}

}  // namespace

std::uint32_t FakeHost::RxFlags() {
  std::uint32_t flags = 0;
  if (workingLeft != 0) {
    --workingLeft;
    flags |= 4;
  }
  if (responses.empty()) return flags;
  Response& response = responses.front();
  if (response.latePolls != 0) {
    --response.latePolls;
    return flags;
  }
  response.seenReady = true;
  return flags | 1 | (response.early ? 8U : 0U);
}

std::size_t FakeHost::WordsIn(const char* property) const {
  return std::stoul(properties.at(property), nullptr, 16) / 4;
}

std::size_t FakeHost::ExpectedWords(const SaciCommand& command) const {
  const std::size_t specific = command.Specific();
  switch (command.Id()) {
    case 6: return std::min<std::size_t>(specific + 1, 17);
    case 9:
    case 27:
    case 28:
    case 33: return 2;
    case 12: return 2 + WordsIn("CcfgSize");
    case 13: return 2 + WordsIn("CcfgUserRecordSize");
    case 14: return std::min<std::size_t>((specific + 15) / 4, 3 + WordsIn("SectorSize"));
    case 15: return 3;
    case 16: return 4;
    case 17: return 5;
    case 25: return 514;
    case 26: return 2 + WordsIn("ScfgSize");
    default: return 1;
  }
}

void FakeHost::ReceiveWords(const Words& words) {
  const bool scripted = registerScripts.count("CFGAP_DEVICESTATUS") != 0;
  if (bootStatus != 0x20 && !scripted) ADD_FAILURE() << "SACI words while the ROM is not in SACI";
  if ((txFlags & 2) != 0) {
    if (commandOpen && !faultInjected) ADD_FAILURE() << "the command before was cut short";
    EXPECT_EQ(words.size(), 1U) << "the start flag belongs to the header alone";
    if (!responses.empty() && !faultInjected) ADD_FAILURE() << "a response was left unread";
    commands.push_back({words, {}});
    commandOpen = true;
    streaming = false;
  } else if (commandOpen) {
    Words& sent = commands.back().words;
    sent.insert(sent.end(), words.begin(), words.end());
  } else if (streaming) {
    ReceiveStream(words);
    return;
  } else {
    ADD_FAILURE() << "words without a command";
    return;
  }
  const std::size_t expected = ExpectedWords(commands.back());
  EXPECT_LE(commands.back().words.size(), expected) << "words of command " << +commands.back().Id();
  if (commands.back().words.size() == expected) CompleteCommand();
}

void FakeHost::CompleteCommand() {
  commandOpen = false;
  const SaciCommand command = commands.back();
  events.push_back(Told(command));
  const std::uint8_t id = command.Id();
  streaming = id == kIdPipelined || id == kIdHsmFirmware;
  wordsStreamed = 0;
  if (streaming) {
    workingLeft = id == kIdHsmFirmware ? workingPolls : 0;
    if (id == kIdHsmFirmware) ReceiveStream({});
    return;
  }
  if (id == 20 && (command.Specific() & 1) == 0) return RestartRom(bootStatusAfterResetRequest);

  SaciReply reply = TakeReply(id);
  if (IsKeyed(id) && command.words[1] != kKey) reply = {.result = 131};
  QueueResponse(reply, id, command.Sequence());
  if (reply.result != 0) return;
  if (id == 6) ahbApEnabled = true;
  if (id == 7) bootStatus = 0x81;
  if (id == 21) bootStatus = 0x90;
}

void FakeHost::ReceiveStream(const Words& words) {
  SaciCommand& command = commands.back();
  const std::uint8_t id = command.Id();
  if (!words.empty()) {
    command.streamed.push_back(words);
    events.push_back("stream " + std::to_string(words.size()));
  }
  wordsStreamed += words.size();
  if (id == kIdPipelined) {
    const std::size_t chunk = command.streamed.size() - 1;
    SaciReply reply = TakeReply(id);
    if (command.words[1] != kKey) reply = {.result = 131};
    return QueueResponse(reply, id, static_cast<std::uint8_t>(command.Sequence() + chunk));
  }

  workingLeft = workingPolls;
  std::deque<SaciReply>& queued = queuedReplies[id];
  if (!queued.empty() && queued.front().earlyAfterPieces == command.streamed.size()) {
    QueueResponse(TakeReply(id), id, command.Sequence());
  }
  if (wordsStreamed >= command.words[1]) QueueResponse(TakeReply(id), id, command.Sequence());
}

SaciReply FakeHost::TakeReply(std::uint8_t id) {
  std::deque<SaciReply>& queued = queuedReplies[id];
  if (!queued.empty()) {
    SaciReply reply = std::move(queued.front());
    queued.pop_front();
    return reply;
  }
  const auto standing = standingReplies.find(id);
  return standing == standingReplies.end() ? SaciReply{} : standing->second;
}

void FakeHost::QueueResponse(const SaciReply& reply, std::uint8_t id, std::uint8_t sequence) {
  if (reply.silent) return;
  Response response;
  response.latePolls = reply.latePolls;
  response.early = reply.earlyAfterPieces.has_value();
  response.words.push_back(static_cast<std::uint32_t>(reply.id.value_or(id)) |
                           static_cast<std::uint32_t>(reply.sequence.value_or(sequence)) << 8 |
                           static_cast<std::uint32_t>(reply.result) << 16 |
                           static_cast<std::uint32_t>(reply.data.size()) << 24);
  response.words.insert(response.words.end(), reply.data.begin(), reply.data.end());
  responses.push_back(std::move(response));
}

void FakeHost::RestartRom(std::uint8_t newBootStatus) {
  bootStatus = newBootStatus;
  txFlags = 0;
  commandOpen = false;
  streaming = false;
  workingLeft = 0;
  responses.clear();
}
