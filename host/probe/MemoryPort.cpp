#include "host/probe/MemoryPort.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <utility>
#include <vector>

namespace host {

namespace {

constexpr std::uint8_t kControl = 0x00;          // CSW
constexpr std::uint8_t kTransferAddress = 0x04;  // TAR
constexpr std::uint8_t kData = 0x0C;             // DRW

constexpr std::uint32_t kSizeAndIncrement =
    0x37;  // CSW bits 2-0 and 5-4; the others stay as the chip has them
constexpr std::uint32_t kSingleIncrement = 0x10;
constexpr std::size_t kPage = 1024;  // the address counts up in bits 9-0 only

std::uint32_t SizeCode(std::size_t elementSize) {
  return elementSize == 4 ? 2 : elementSize == 2 ? 1 : 0;
}

void RequireWholeElements(std::uint32_t address, std::size_t length, std::size_t elementSize) {
  if (elementSize != 1 && elementSize != 2 && elementSize != 4)
    throw std::runtime_error(fmt::format("access width of {} bytes is not offered", elementSize));
  if (address % elementSize != 0 || length % elementSize != 0)
    throw std::runtime_error(
        fmt::format("{} bytes at 0x{:08x} are no whole elements of {} bytes", length, address, elementSize));
  if (length > (std::uint64_t{1} << 32) - address)
    throw std::runtime_error(fmt::format("{} bytes at 0x{:08x} leave the 32-bit addresses", length, address));
}

// Calls `page(address, part)` for each part of the range that lies in one page.
template <typename Bytes, typename Page>
void ForEachPage(std::uint32_t address, Bytes bytes, Page&& page) {
  while (!bytes.empty()) {
    const std::size_t length = std::min(kPage - address % kPage, bytes.size());
    page(address, bytes.first(length));
    bytes = bytes.subspan(length);
    address += static_cast<std::uint32_t>(length);
  }
}

// An element stands on the lanes of the word that its address gives it.
unsigned LaneShift(std::size_t byteAddress) {
  return static_cast<unsigned>(byteAddress % 4 * 8);
}

template <typename Accesses>
void Naming(const char* verb, std::uint32_t address, std::size_t length, Accesses&& accesses) {
  try {
    std::forward<Accesses>(accesses)();
  } catch (const ProbeError& error) {
    if (error.Which() == ProbeError::Kind::Cancelled) throw;
    throw ProbeError(error.Which(), fmt::format("0x{:08x}..0x{:08x} cannot be {}: {}", address,
                                                address + (length - 1), verb, error.what()));
  }
}

}  // namespace

void MemoryPort::SetUp(std::size_t elementSize) {
  const ApRegister csw{port, kControl};
  const std::uint32_t kept = (control ? *control : access.ReadAp(csw)) & ~kSizeAndIncrement;
  const std::uint32_t wanted = kept | kSingleIncrement | SizeCode(elementSize);
  if (control == wanted) return;
  control.reset();
  access.WriteAp(csw, wanted);
  control = wanted;
}

void MemoryPort::Read(std::uint32_t address, std::span<std::uint8_t> bytes, std::size_t elementSize) {
  RequireWholeElements(address, bytes.size(), elementSize);
  Naming("read", address, bytes.size(), [&] {
    ForEachPage(address, bytes, [&](std::uint32_t at, std::span<std::uint8_t> part) {
      SetUp(elementSize);
      access.WriteAp({port, kTransferAddress}, at);
      std::vector<std::uint32_t> words(part.size() / elementSize);
      access.ReadApBlock({port, kData}, words);
      for (std::size_t i = 0; i < part.size(); ++i)
        part[i] = static_cast<std::uint8_t>(words[i / elementSize] >> LaneShift(at + i));
    });
  });
}

void MemoryPort::Write(std::uint32_t address, std::span<const std::uint8_t> bytes, std::size_t elementSize) {
  RequireWholeElements(address, bytes.size(), elementSize);
  Naming("written", address, bytes.size(), [&] {
    ForEachPage(address, bytes, [&](std::uint32_t at, std::span<const std::uint8_t> part) {
      SetUp(elementSize);
      access.WriteAp({port, kTransferAddress}, at);
      std::vector<std::uint32_t> words(part.size() / elementSize);
      for (std::size_t i = 0; i < part.size(); ++i)
        words[i / elementSize] |= std::uint32_t{part[i]} << LaneShift(at + i);
      access.WriteApBlock({port, kData}, words);
    });
  });
}

}  // namespace host
