#include "host/gdb/Collected.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/device/InputError.h"
#include "host/plan/MemoryText.h"

namespace host::gdb {

Collected::Collected(std::span<const AddressRange> ranges, std::uint32_t ignoredAddressBits,
                     Twice whatIsSentTwice)
    : aliasMask(ignoredAddressBits), twice(whatIsSentTwice) {
  for (const AddressRange range : ranges)
    if (range.size != 0) memories.push_back({range, {}, {}});
}

Collected::Part Collected::FirstPart(AddressRange range) const {
  const std::uint32_t plain = range.base & ~aliasMask;
  for (std::size_t i = 0; i < memories.size(); ++i) {
    const AddressRange memory = memories[i].range;
    if (!memory.Contains(plain)) continue;
    const std::uint32_t offset = plain - memory.base;
    return {i, offset, std::min(range.size, memory.size - offset)};
  }
  return {};
}

std::vector<Collected::Part> Collected::Parts(AddressRange range) const {
  std::vector<Part> parts;
  for (AddressRange rest = range; rest.size != 0;) {
    const Part part = FirstPart(rest);
    if (part.size == 0)
      throw InputError(
          fmt::format("{}: 0x{:08x} lies in no memory that takes this", RangeText(range), rest.base));
    parts.push_back(part);
    rest.base += part.size;
    rest.size -= part.size;
  }
  return parts;
}

void Collected::Require(AddressRange range) const {
  (void)Parts(range);
}

bool Collected::HasAnyOf(AddressRange range) const {
  for (const Part& part : Parts(range)) {
    const std::vector<bool>& isGiven = memories[part.memory].isGiven;
    for (std::uint32_t i = 0; i < part.size && !isGiven.empty(); ++i)
      if (isGiven[part.offset + i]) return true;
  }
  return false;
}

void Collected::Put(std::uint32_t address, std::span<const std::uint8_t> bytes) {
  const AddressRange range{address, static_cast<std::uint32_t>(bytes.size())};
  const std::vector<Part> parts = Parts(range);
  std::size_t done = 0;
  for (const Part& part : parts) {
    const Memory& memory = memories[part.memory];
    for (std::uint32_t i = 0; i < part.size && !memory.bytes.empty() && twice == Twice::Refused; ++i)
      if (memory.isGiven[part.offset + i] && memory.bytes[part.offset + i] != bytes[done + i])
        throw InputError(fmt::format("{}: sent twice, and not the same", RangeText(range)));
    done += part.size;
  }
  done = 0;
  for (const Part& part : parts) {
    Memory& memory = memories[part.memory];
    memory.bytes.resize(memory.range.size);
    memory.isGiven.resize(memory.range.size);
    for (std::uint32_t i = 0; i < part.size; ++i) {
      if (!memory.isGiven[part.offset + i]) ++size;
      memory.isGiven[part.offset + i] = true;
      memory.bytes[part.offset + i] = bytes[done + i];
    }
    done += part.size;
  }
}

std::vector<ImageSegment> Collected::Segments() const {
  std::vector<ImageSegment> segments;
  for (const Memory& memory : memories) {
    bool isOpen = false;
    for (std::uint32_t i = 0; i < memory.bytes.size(); ++i) {
      if (memory.isGiven[i] && !isOpen) segments.push_back({memory.range.base + i, {}});
      isOpen = memory.isGiven[i];
      if (isOpen) segments.back().data.push_back(memory.bytes[i]);
    }
  }
  return segments;
}

void Collected::Clear() {
  for (Memory& memory : memories) memory = {memory.range, {}, {}};
  size = 0;
}

}  // namespace host::gdb
