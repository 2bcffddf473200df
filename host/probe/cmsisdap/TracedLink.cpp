#include "host/probe/cmsisdap/TracedLink.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

#include "host/device/InputError.h"
#include "host/probe/cmsisdap/DapPacket.h"

namespace host {

namespace {

struct CommandName {
  DapCommand command;
  std::string_view name;
};
constexpr CommandName s_names[] = {
    {DapCommand::Info, "Info"},
    {DapCommand::Connect, "Connect"},
    {DapCommand::Disconnect, "Disconnect"},
    {DapCommand::TransferConfigure, "TransferConfigure"},
    {DapCommand::Transfer, "Transfer"},
    {DapCommand::TransferBlock, "TransferBlock"},
    {DapCommand::WriteAbort, "WriteABORT"},
    {DapCommand::Pins, "SWJ_Pins"},
    {DapCommand::Clock, "SWJ_Clock"},
    {DapCommand::Sequence, "SWJ_Sequence"},
    {DapCommand::SwdConfigure, "SWD_Configure"},
};

std::string NameOf(std::uint8_t command) {
  for (const CommandName& one : s_names)
    if (static_cast<std::uint8_t>(one.command) == command) return std::string(one.name);
  return fmt::format("0x{:02x}", command);
}

constexpr std::uint32_t kCommandStart = 1U << 1;  // SECAP_TXCTL: the next word begins a command
constexpr std::uint8_t kSubmitPassword = 6;       // a command, in bits 7-0 of that word

std::string AcknowledgeText(std::uint8_t acknowledge) {
  const std::string mismatch = (acknowledge & 0x10) != 0 ? ", no match" : "";
  switch (acknowledge & 0xF) {
    case 0: return "nothing" + mismatch;
    case 1: return "OK" + mismatch;
    case 2: return "WAIT" + mismatch;
    case 4: return "FAULT" + mismatch;
    case 7: return "no acknowledge" + mismatch;
    default: return fmt::format("acknowledge {}", acknowledge);
  }
}

}  // namespace

TracedLink::TracedLink(std::unique_ptr<PacketLink> cable, const std::filesystem::path& file,
                       AccessPorts portMap)
    : link(std::move(cable)), ports(std::move(portMap)), out(file) {
  if (!out) throw InputError(fmt::format("{}: cannot be written", file.string()));
}

void TracedLink::Send(std::span<const std::uint8_t> packet) {
  Write('>', Tell(packet));
  link->Send(packet);
}

std::optional<Packet> TracedLink::Receive(std::chrono::milliseconds timeout) {
  auto answer = link->Receive(timeout);
  if (answer) Write('<', TellAnswer(*answer));
  return answer;
}

void TracedLink::Write(char direction, const std::string& text) {
  out << fmt::format("{:12.4f} {} {}\n", static_cast<double>(NowNs()) / 1e6, direction, text);
}

std::string TracedLink::Tell(std::span<const std::uint8_t> packet) {
  try {
    if (packet.empty()) return "nothing";
    if (packet[0] == static_cast<std::uint8_t>(DapCommand::Transfer)) return TellTransfers(packet);
    if (packet[0] == static_cast<std::uint8_t>(DapCommand::TransferBlock)) return TellBlock(packet);
    return fmt::format("{} {:02x}", NameOf(packet[0]), fmt::join(packet.subspan(1), " "));
  } catch (const ProbeError&) {
    return "a packet that is cut short";
  }
}

std::string TracedLink::TellTransfers(std::span<const std::uint8_t> packet) {
  AnswerReader in(packet);
  in.Bytes(2);
  std::string text = "Transfer";
  for (unsigned left = in.Byte(); left > 0; --left) {
    const std::uint8_t request = in.Byte();
    const bool isRead = (request & kRead) != 0;
    const std::string name = RegisterOf(request);
    if ((request & kMatchMask) != 0)
      text += fmt::format(" mask 0x{:08x};", in.Word());
    else if ((request & kMatchValue) != 0)
      text += fmt::format(" match {} 0x{:08x};", name, in.Word());
    else if (isRead)
      text += fmt::format(" read {};", name);
    else {
      const std::uint32_t word = in.Word();
      if (name == "SELECT") selected = word;
      text += fmt::format(" write {} {};", name, Written(name, word));
    }
  }
  text.pop_back();
  return text;
}

std::string TracedLink::TellBlock(std::span<const std::uint8_t> packet) {
  AnswerReader in(packet);
  in.Bytes(2);
  const unsigned count = in.Half();
  const std::uint8_t request = in.Byte();
  const std::string name = RegisterOf(request);
  if ((request & kRead) != 0) return fmt::format("TransferBlock read {} {} words", name, count);
  std::string text = fmt::format("TransferBlock write {} {} words:", name, count);
  for (unsigned i = 0; i < count; ++i) text += " " + Written(name, in.Word());
  return text;
}

std::string TracedLink::TellAnswer(std::span<const std::uint8_t> answer) const {
  try {
    AnswerReader in(answer);
    const std::uint8_t command = in.Byte();
    const bool isBlock = command == static_cast<std::uint8_t>(DapCommand::TransferBlock);
    if (!isBlock && command != static_cast<std::uint8_t>(DapCommand::Transfer))
      return fmt::format("{} {:02x}", NameOf(command), fmt::join(answer.subspan(1), " "));
    const unsigned done = isBlock ? in.Half() : in.Byte();
    std::string text = fmt::format("{} {} done, {}", NameOf(command), done, AcknowledgeText(in.Byte()));
    const std::size_t words = (answer.size() - (isBlock ? 4 : 3)) / 4;
    for (std::size_t i = 0; i < words; ++i) text += fmt::format(" {:08x}", in.Word());
    return text;
  } catch (const ProbeError&) {
    return fmt::format("cut short: {:02x}", fmt::join(answer, " "));
  }
}

std::string TracedLink::RegisterOf(std::uint8_t request) const {
  const auto address = static_cast<std::uint8_t>(request & kRegister);
  if ((request & kPort) == 0) {
    const bool isRead = (request & kRead) != 0;
    switch (address) {
      case 0x0: return isRead ? "DPIDR" : "ABORT";
      case 0x4: return "CTRL/STAT";
      case 0x8: return isRead ? "RESEND" : "SELECT";
      default: return "RDBUFF";
    }
  }
  const unsigned port = selected >> 24;
  const unsigned offset = (selected & 0xF0) | address;
  for (const PortRegister& one : ports.registers)
    if (one.port == port && one.offset == offset) return one.name;
  return fmt::format("AP{} 0x{:02x}", port, offset);
}

std::string TracedLink::Written(const std::string& name, std::uint32_t word) {
  if (name == "SECAP_TXCTL") nextIsHeader = (word & kCommandStart) != 0;
  if (name == "SECAP_TXDATA") {
    if (isPassword && !nextIsHeader) return "********";
    if (nextIsHeader) isPassword = (word & 0xFF) == kSubmitPassword;
  }
  return fmt::format("{:08x}", word);
}

}  // namespace host
