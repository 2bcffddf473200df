#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "host/device/MemoryMap.h"
#include "host/image/ImageFile.h"

namespace host::gdb {

// Bytes that a client has sent for some memories of the device, until they are all there. Takes no more room
// than these memories have, whatever is sent.
class Collected {
 public:
  // Two different bytes for one address: a mistake, or the later one counts.
  enum class Twice { Refused, LaterCounts };

  Collected(std::span<const AddressRange> memories, std::uint32_t ignoredAddressBits, Twice whatIsSentTwice);

  // Throws InputError, with nothing taken, for what does not lie in these memories whole, or comes twice.
  void Put(std::uint32_t address, std::span<const std::uint8_t> bytes);
  // Throws InputError unless all of the range lies in these memories.
  void Require(AddressRange range) const;
  [[nodiscard]] bool Contains(std::uint32_t address) const { return FirstPart({address, 1}).size != 0; }

  // Whether some of the range, which lies in these memories, has been put here.
  [[nodiscard]] bool HasAnyOf(AddressRange range) const;

  [[nodiscard]] std::size_t Size() const { return size; }
  // Ascending in each memory, each as long as can be, at plain addresses.
  [[nodiscard]] std::vector<ImageSegment> Segments() const;
  void Clear();

 private:
  struct Memory {
    AddressRange range;
    std::vector<std::uint8_t> bytes;  // empty until something is put there
    std::vector<bool> isGiven;
  };
  // What of a range lies in one memory; size 0 when its first byte lies in none.
  struct Part {
    std::size_t memory = 0;
    std::uint32_t offset = 0;
    std::uint32_t size = 0;
  };
  [[nodiscard]] Part FirstPart(AddressRange range) const;
  [[nodiscard]] std::vector<Part> Parts(AddressRange range) const;

  std::vector<Memory> memories;
  std::uint32_t aliasMask;
  Twice twice;
  std::size_t size = 0;
};

}  // namespace host::gdb
