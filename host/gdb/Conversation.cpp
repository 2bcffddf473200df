#include "host/gdb/Conversation.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "host/device/InputError.h"
#include "host/device/Number.h"
#include "host/gdb/Descriptions.h"
#include "host/gdb/MemoryCrc.h"
#include "host/gdb/Packets.h"
#include "host/plan/MemoryText.h"
#include "host/report/Format.h"

namespace host::gdb {

namespace {

constexpr std::size_t kMostRead = kPacketSize / 2;  // bytes in one answer, two digits each
constexpr std::uint32_t kThumbState = 1U << 24;     // of xpsr: the core knows no other

constexpr const char* kUnreadable = "xxxxxxxx";  // shown as <unavailable>

std::array<AddressRange, 4> FlashMemories(const MemoryMap& map) {
  return {map.main, map.ccfg, map.scfg, map.otp};
}

bool IsInMemory(const MemoryMap& map, std::uint32_t address) {
  const std::uint32_t plain = address & ~map.aliasMask;
  const auto memories = FlashMemories(map);
  return map.ram.Contains(plain) || std::any_of(memories.begin(), memories.end(),
                                                [&](AddressRange memory) { return memory.Contains(plain); });
}

std::string WordText(std::uint32_t word) {
  std::string bytes;
  for (unsigned shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(word >> shift & 0xFF);
  return ToHex(bytes);
}

AddressRange RequireRange(std::string_view text) {
  const auto range = ParseRange(text);
  if (!range) throw InputError(fmt::format("\"{}\" is no address and length", text.substr(0, 40)));
  return *range;
}

// "ADDRESS,LENGTH:DATA"
struct Write {
  AddressRange range;
  std::string_view data;
};
Write RequireWrite(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) throw InputError("a write without data");
  return {RequireRange(text.substr(0, colon)), text.substr(colon + 1)};
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
  bool keepsRam = false;  // may stand between a load's bytes for RAM and its flash
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
  if (!command->keepsRam && !isLoading) ForgetRam();
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
  if (isLoading)
    terminal.Complain(
        fmt::format("the client has left in the middle of a load: {} had come, nothing was done",
                    Bytes(flash.Size() + ram.Size())));
  isLoading ? Forget() : ForgetRam();
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
  flash.Require(RequireRange(rest));
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

std::string Conversation::WriteMemory(std::string_view rest) {
  const Write write = RequireWrite(rest);
  PutRam(write.range, write.data);
  return "OK";
}

std::string Conversation::WriteMemoryHex(std::string_view rest) {
  const Write write = RequireWrite(rest);
  const auto bytes = FromHex(write.data);
  if (!bytes) throw InputError("a write with odd digits");
  PutRam(write.range, *bytes);
  return "OK";
}

// An open chip gets them at once, for a debugger's user may just set a variable; all are kept for the load
// that may follow.
void Conversation::PutRam(AddressRange range, std::string_view bytes) {
  if (range.size != bytes.size()) throw InputError("a write of another length than it says");
  if (bytes.empty()) return;  // asked to learn whether the packet is known
  RequireAttached();
  const bool isFirst = ram.Size() == 0;
  ram.Put(range.base, AsBytes(bytes));
  isRamWritten = (isFirst || isRamWritten) && target.IsOpen();
  if (isRamWritten) target.WriteRam(range.base, AsBytes(bytes));
}

std::string Conversation::ReadMemory(std::string_view rest) {
  const AddressRange range = RequireRange(rest);
  std::vector<std::uint8_t> bytes(std::min<std::size_t>(range.size, kMostRead));
  try {
    target.Read(range.base, bytes);
  } catch (const std::exception& error) {
    if (IsInMemory(target.Map(), range.base)) throw;
    throw ToldError(error.what());  // a client follows its <unavailable> registers: nobody's fault
  }
  return ToHex(AsText(bytes));
}

std::string Conversation::MemoryCrc(std::string_view rest) {
  constexpr std::uint32_t kPiece = 0x1000;  // an absurd length fails at its first byte outside a memory
  std::uint32_t crc = kMemoryCrcStart;
  for (AddressRange range = RequireRange(rest); range.size != 0;) {
    std::vector<std::uint8_t> bytes(std::min(range.size, kPiece));
    target.Read(range.base, bytes);
    crc = gdb::MemoryCrc(bytes, crc);
    range.base += static_cast<std::uint32_t>(bytes.size());
    range.size -= static_cast<std::uint32_t>(bytes.size());
  }
  return fmt::format("C{:x}", crc);
}

// There is no halted core whose registers could be read. Clients need a program counter all the same: the one
// after a reset, where the chip can be read.
std::string Conversation::RegisterText(unsigned number) {
  if (number == kStatusRegister) return WordText(kThumbState);
  if (number != kProgramCounter) return kUnreadable;
  const MemoryMap& map = target.Map();
  std::uint32_t reset = 0;
  if (map.main.size >= 8 && target.IsOpen()) {
    std::array<std::uint8_t, 4> bytes{};
    target.Read(map.main.base + 4, bytes);
    for (std::size_t i = 0; i < bytes.size(); ++i) reset |= std::uint32_t{bytes[i]} << (8 * i);
    reset &= ~1U;  // tells the instruction set
  }
  return WordText(map.main.Contains(reset & ~map.aliasMask) ? reset : 0);
}

std::string Conversation::ReadRegisters(std::string_view) {
  std::string text;
  for (unsigned number = 0; number < kRegisters; ++number) text += RegisterText(number);
  return text;
}

std::string Conversation::ReadRegister(std::string_view rest) {
  const auto number = ParseHexNumber(rest);
  return number && *number < kRegisters ? RegisterText(static_cast<unsigned>(*number)) : "E01";
}

// A client ends its load with the program counter. Bytes for RAM that are still here belong to a load of RAM
// alone, and the chip was closed to them.
std::string Conversation::WriteRegister(std::string_view) {
  if (ram.Size() != 0 && !isRamWritten) LoadCollected();
  return "OK";
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
