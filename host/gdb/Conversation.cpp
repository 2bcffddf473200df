#include "host/gdb/Conversation.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "host/device/InputError.h"
#include "host/device/Number.h"
#include "host/gdb/Descriptions.h"
#include "host/gdb/Packets.h"
#include "host/report/Format.h"

namespace host::gdb {

namespace {

auto FlashMemories(const MemoryMap& map) {
  return std::array{map.main, map.ccfg, map.scfg, map.otp};
}

}  // namespace

// What a failed command is answered. Clients show the text of most; where they take it for data or for a
// breach of the protocol, they get a number, and the text is on the server's terminal.
enum class OnError {
  Text,
  Number,
  Spoil,  // the text, and an end to the load
};

struct Conversation::Command {
  std::string_view prefix;
  Handler handler;
  OnError onError = OnError::Text;
  bool isPartOfLoad = false;  // may come before a load is done, without giving it up
};

// The first that fits counts. What is not here is answered with nothing: the protocol's "not known".
const Conversation::Command Conversation::s_commands[] = {
    {"vFlashErase:", &Conversation::EraseFlash, OnError::Spoil, true},
    {"vFlashWrite:", &Conversation::WriteFlash, OnError::Spoil, true},
    {"vFlashDone", &Conversation::FlashDone, OnError::Spoil, true},
    {"qXfer:", &Conversation::Transfer, OnError::Number, true},
    {"qCRC:", &Conversation::MemoryCrc, OnError::Number},
    {"qRcmd,", &Conversation::RunMonitor, OnError::Number},
    {"vKill;", &Conversation::Detach},
    {"vCont;", &Conversation::RefuseToRun},
    {"X", &Conversation::WriteMemory, OnError::Spoil, true},
    {"M", &Conversation::WriteMemoryHex, OnError::Spoil, true},
    {"m", &Conversation::ReadMemory, OnError::Number},
    {"g", &Conversation::ReadRegisters},
    {"p", &Conversation::ReadRegister},
    {"P", &Conversation::WriteRegister},
    {"c", &Conversation::RefuseToRun},
    {"C", &Conversation::RefuseToRun},
    {"s", &Conversation::RefuseToRun},
    {"S", &Conversation::RefuseToRun},
    {"D", &Conversation::Detach},
    {"k", &Conversation::Kill},
};

Conversation::Conversation(Target& chip, Terminal& serverTerminal)
    : target(chip),
      terminal(serverTerminal),
      flash(FlashMemories(chip.Map()), chip.Map().aliasMask, Collected::Twice::Refused),
      ram(std::array{chip.Map().ram}, chip.Map().aliasMask, Collected::Twice::LaterCounts) {}

std::string Conversation::Answer(std::string_view packet, const Console& console) {
  present = &console;
  std::string answer = Dispatch(packet);
  present = nullptr;
  return answer;
}

std::string Conversation::Dispatch(std::string_view packet) {
  if (packet.starts_with("qSupported"))
    return fmt::format("PacketSize={:x};qXfer:memory-map:read+;qXfer:features:read+;QStartNoAckMode+",
                       kPacketSize);
  if (packet == "QStartNoAckMode" || packet == "!" || packet.starts_with("H")) return "OK";
  if (packet == "?") return "S05";
  if (packet == "qAttached") return "1";  // so that a client which ends leaves the target, and kills nothing

  const auto* const command =
      std::find_if(std::begin(s_commands), std::end(s_commands),
                   [&](const Command& known) { return packet.starts_with(known.prefix); });
  if (command == std::end(s_commands)) return "";
  std::string answer;
  try {
    answer = (this->*command->handler)(packet.substr(command->prefix.size()));
  } catch (const std::exception& error) {
    answer = Fail(*command, error);
  }
  if (!command->isPartOfLoad) GiveUp("turned to something else");
  return answer;
}

std::string Conversation::Fail(const Command& command, const std::exception& error) {
  const bool isTold = dynamic_cast<const ToldError*>(&error) != nullptr;
  // A client that looks at a closed chip asks many times.
  if (!isTold && (command.onError != OnError::Number || error.what() != lastComplaint))
    terminal.Complain(error.what());
  lastComplaint = error.what();
  if (command.onError == OnError::Spoil) Spoil();
  // A client that has detached takes a text for an answer, and loses its way.
  if (command.onError == OnError::Number || isDetached) return "E01";
  return ErrorAnswer(error.what());
}

void Conversation::Spoil() {
  Forget();
  isSpoilt = true;
}

void Conversation::End() {
  GiveUp("has left");
}

// What is left of a load that was not done would go into the next one.
void Conversation::GiveUp(std::string_view why) {
  if (!isLoading) return ForgetRam();
  terminal.Complain(fmt::format("the client {} in the middle of a load: {} had come, nothing was done", why,
                                Bytes(flash.Size() + ram.Size())));
  Spoil();
}

void Conversation::Forget() {
  flash.Clear();
  ram.Clear();
  isLoading = false;
}

void Conversation::ForgetRam() {
  if (!isRamWritten && ram.Size() != 0)
    ComplainOnce(fmt::format("{} for RAM were not written: the chip's memory is closed", Bytes(ram.Size())));
  ram.Clear();
}

void Conversation::ComplainOnce(const std::string& text) {
  if (text != lastComplaint) terminal.Complain(text);
  lastComplaint = text;
}

std::string Conversation::Detach(std::string_view) {
  isDetached = true;
  return "OK";
}

// LLDB waits to be told of the end; GDB does not listen any more.
std::string Conversation::Kill(std::string_view) {
  isDetached = true;
  return "X09";
}

std::string Conversation::RefuseToRun(std::string_view) {
  throw InputError("this server loads and reads; it does not run programs: 'monitor reset' starts the chip");
}

// "memory-map:read::OFFSET,LENGTH"
std::string Conversation::Transfer(std::string_view rest) {
  std::string document;
  if (rest.starts_with("memory-map:read::")) {
    document = MemoryMapXml(target.Map());
  } else if (rest.starts_with("features:read:target.xml:")) {
    document = TargetXml();
  } else {
    return "";
  }
  const AddressRange wanted = RequireRange(rest.substr(rest.rfind(':') + 1));
  if (wanted.base >= document.size()) return "l";
  const std::string_view part = std::string_view(document).substr(wanted.base, wanted.size);
  return (wanted.End() < document.size() ? "m" : "l") + Escaped(part);
}

void Conversation::RequireAttached() const {
  if (isDetached) throw InputError("the client has detached from the chip: connect again before a load");
}

void Conversation::RequireWholeLoad() const {
  RequireAttached();
  if (isSpoilt) throw InputError("a part of this load has failed: begin it anew");
}

std::string Conversation::EraseFlash(std::string_view rest) {
  RequireAttached();
  const AddressRange range = RequireRange(rest);
  flash.Require(range);
  if (flash.HasAnyOf(range)) {  // no load erases what it has written
    terminal.Complain("the client began a load anew: what it had sent before is dropped");
    flash.Clear();
  }
  isLoading = true;
  isSpoilt = false;
  return "OK";
}

std::string Conversation::WriteFlash(std::string_view rest) {
  RequireWholeLoad();
  const std::size_t colon = rest.find(':');
  const auto address = ParseHexNumber(rest.substr(0, colon));
  if (colon == std::string_view::npos || !address || *address > UINT32_MAX)
    throw InputError("a write of flash without an address");
  isLoading = true;
  flash.Put(static_cast<std::uint32_t>(*address), AsBytes(rest.substr(colon + 1)));
  return "OK";
}

std::string Conversation::FlashDone(std::string_view) {
  RequireWholeLoad();
  if (flash.Size() == 0)
    throw InputError(
        "nothing was written to flash; 'monitor erase' erases the chip, which it does as a whole");
  LoadCollected();
  return "OK";
}

// Whatever comes of it, the next load begins with nothing.
void Conversation::LoadCollected() {
  std::vector<ImageSegment> segments = flash.Segments();
  for (ImageSegment& segment : ram.Segments()) segments.push_back(std::move(segment));
  Forget();
  lastComplaint.clear();
  target.Load(std::move(segments));
}

std::string Conversation::RunMonitor(std::string_view rest) {
  const auto command = FromHex(rest);
  if (!command) throw InputError("a monitor command with odd digits");
  try {
    target.Monitor(*command, *present);
  } catch (const std::exception& error) {
    (*present)(fmt::format("{}\n", error.what()));
    throw;
  }
  return "OK";
}

}  // namespace host::gdb
