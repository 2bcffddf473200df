#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <span>

#include "host/device/InputError.h"
#include "host/device/Number.h"
#include "host/gdb/Conversation.h"
#include "host/gdb/Descriptions.h"
#include "host/gdb/MemoryCrc.h"
#include "host/gdb/Packets.h"

// What a client says about memory and registers outside of a load of flash.

namespace host::gdb {

namespace {

constexpr std::size_t kMostRead = kPacketSize / 2;  // bytes in one answer, two digits each
constexpr std::uint32_t kPiece = 0x400;             // bytes that the slowest probe reads in a moment
constexpr std::uint32_t kResetVector = 4;           // behind the first stack pointer
constexpr std::uint32_t kThumbState = 1U << 24;     // of xpsr: the core knows no other

constexpr const char* kUnreadable = "xxxxxxxx";  // shown as <unavailable>

std::string WordText(std::uint32_t word) {
  std::string bytes;
  for (unsigned shift = 0; shift < 32; shift += 8) bytes += static_cast<char>(word >> shift & 0xFF);
  return ToHex(bytes);
}

// A debugger waits two seconds for an answer; who misses that is out of step with it from then on.
class Patience {
 public:
  [[nodiscard]] bool IsOver() const {
    return std::chrono::steady_clock::now() - begin > std::chrono::milliseconds(1200);
  }

 private:
  std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
};

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

// A client asks again for what is missing at the end.
std::string Conversation::ReadMemory(std::string_view rest) {
  const AddressRange range = RequireRange(rest);
  std::vector<std::uint8_t> bytes(std::min<std::size_t>(range.size, kMostRead));
  const Patience patience;
  try {
    for (std::size_t read = 0; read < bytes.size();) {
      const auto piece =
          std::span(bytes).subspan(read).first(std::min<std::size_t>(kPiece, bytes.size() - read));
      target.Read(range.base + static_cast<std::uint32_t>(read), piece);
      read += piece.size();
      if (patience.IsOver()) bytes.resize(read);
    }
  } catch (const std::exception& error) {
    if (flash.Contains(range.base) || ram.Contains(range.base)) throw;
    throw ToldError(error.what());  // a client follows its <unavailable> registers: nobody's fault
  }
  return ToHex(AsText(bytes));
}

std::string Conversation::MemoryCrc(std::string_view rest) {
  std::uint32_t crc = kMemoryCrcStart;
  const Patience patience;
  // An absurd length fails at its first byte outside a memory.
  for (AddressRange range = RequireRange(rest); range.size != 0;) {
    std::vector<std::uint8_t> bytes(std::min(range.size, kPiece));
    if (patience.IsOver())
      throw InputError(
          "this probe reads so slowly that the debugger would not wait for the comparison: "
          "'monitor verify' compares with what was loaded");
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
  return number == kProgramCounter ? WordText(ResetAddress()) : kUnreadable;
}

std::uint32_t Conversation::ResetAddress() {
  const MemoryMap& map = target.Map();
  std::array<std::uint8_t, 4> bytes{};
  try {
    if (!target.IsOpen()) return 0;
    target.Read(map.main.base + kResetVector, bytes);
  } catch (const std::exception&) {
    return 0;  // a client that gets no registers goes away
  }
  std::uint32_t reset = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) reset |= std::uint32_t{bytes[i]} << (8 * i);
  reset &= ~1U;  // tells the instruction set
  return map.main.Contains(reset & ~map.aliasMask) ? reset : 0;
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
  if (ram.Size() != 0 && !isRamWritten && !isLoading) LoadCollected();
  return "OK";
}

}  // namespace host::gdb
