#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/image/ImageFile.h"
#include "host/image/ImageWriter.h"
#include "host/plan/ImagePlan.h"

// What holds of every image and of every plan, for tests that make them up and for the fuzzer. Each rule
// gives the sentence that is broken, or an empty text.

using Memory = std::map<std::uint32_t, std::uint8_t>;

inline std::string BrokenImageRule(const host::ImageFile& image) {
  if (image.segments.empty()) return "an image holds something";
  for (const host::ImageSegment& segment : image.segments) {
    if (segment.data.empty()) return "no segment is empty";
    if (segment.data.size() > 0xFFFF'FFFF - segment.address) return "no segment leaves the address space";
  }
  return {};
}

// Written in either format, a segment is read back.
inline std::string BrokenWriterRule(const host::ImageSegment& segment) {
  for (const auto write : {host::WriteIntelHex, host::WriteSRecord}) {
    const std::string text = write(segment.data, segment.address);
    const host::ImageFile again =
        host::ParseImage("again", {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
    if (again.segments != std::vector{segment}) return "what is written is read back";
  }
  return {};
}

// Every byte at its address; nothing when two segments give the same address.
inline std::optional<Memory> MemoryOf(const host::ImageFile& image) {
  Memory memory;
  for (const host::ImageSegment& segment : image.segments) {
    std::uint32_t address = segment.address;
    for (const std::uint8_t byte : segment.data)
      if (!memory.emplace(address++, byte).second) return std::nullopt;
  }
  return memory;
}

// Of the plan of images that hold `memory`.
inline std::string BrokenPlanRule(const host::LoadPlan& plan, const Memory& memory) {
  std::size_t planned = 0;
  std::uint64_t end = 0;
  for (const host::ImageBlock& block : plan.blocks) {
    if (block.data.empty() || block.address < end) return "blocks ascend and are not empty";
    end = std::uint64_t{block.address} + block.data.size();
    Memory given;
    for (const host::AddressRange& range : block.given)
      for (std::uint64_t at = range.base; at < range.End(); ++at) given[static_cast<std::uint32_t>(at)] = 0;
    planned += given.size();
    for (std::size_t i = 0; i < block.data.size(); ++i) {
      const auto address = static_cast<std::uint32_t>(block.address + i);
      const auto wanted = memory.find(address);
      if (given.contains(address) != (wanted != memory.end())) return "what is given is what the image has";
      if (block.data[i] != (wanted != memory.end() ? wanted->second : 0xFF)) return "a planned byte is right";
    }
  }
  return planned == memory.size() ? "" : "every byte of the image is in the plan once";
}
