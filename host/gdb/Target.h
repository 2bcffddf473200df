#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "host/device/MemoryMap.h"
#include "host/image/ImageFile.h"
#include "host/load/LoadEvents.h"

namespace host::gdb {

// Where the server's user reads along.
class Terminal {
 public:
  virtual ~Terminal() = default;
  virtual void Say(std::string_view text) = 0;
  virtual void Complain(std::string_view text) = 0;
  // Lines that belong to the complaint before.
  virtual void Explain(std::string_view text) = 0;
  virtual void Follow(const LoadEvent& event) = 0;
};

// Text for the client's console, as it comes.
using Console = std::function<void(std::string_view)>;

// A failure of which the terminal has been told already; the text is for the client, in one line.
struct ToldError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// What a client can do to a chip. Everything fails by throwing a std::exception with a text for the user, and
// can be tried again.
class Target {
 public:
  virtual ~Target() = default;

  [[nodiscard]] virtual const MemoryMap& Map() const = 0;
  // One whole load: nothing of the loads before is kept in mind.
  virtual void Load(std::vector<ImageSegment> segments) = 0;
  virtual void Read(std::uint32_t address, std::span<std::uint8_t> bytes) = 0;
  // Whether the chip lets a debugger reach its memory.
  [[nodiscard]] virtual bool IsOpen() = 0;
  // Of an open chip.
  virtual void WriteRam(std::uint32_t address, std::span<const std::uint8_t> bytes) = 0;
  virtual void Monitor(std::string_view command, const Console& console) = 0;
};

}  // namespace host::gdb
