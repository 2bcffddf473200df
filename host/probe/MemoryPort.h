#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "host/probe/ApAccess.h"

namespace host {

// The chip's memory through its memory access port. Failures are ApAccess's, with the range that could not be
// read or written; a range that is no whole number of aligned elements is refused with std::runtime_error.
class MemoryPort {
 public:
  // `portAccess` must outlive this object.
  MemoryPort(ApAccess& portAccess, std::uint8_t portNumber) : access(portAccess), port(portNumber) {}

  // The port has been reset, or may have been: it is set up anew.
  void Forget() { control.reset(); }

  // `elementSize` is the width of an access on the chip's bus: 1, 2 or 4 bytes.
  void Read(std::uint32_t address, std::span<std::uint8_t> bytes, std::size_t elementSize);
  void Write(std::uint32_t address, std::span<const std::uint8_t> bytes, std::size_t elementSize);

 private:
  void SetUp(std::size_t elementSize);

  ApAccess& access;
  std::uint8_t port;
  std::optional<std::uint32_t> control;  // what the port's CSW holds
};

}  // namespace host
