#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ByteSource.h"
#include "Require.h"
#include "host/device/InputError.h"
#include "host/image/ImageFile.h"
#include "host/plan/ImagePlan.h"

// Arbitrary bytes as an image file. It is refused with one line, or its bytes have addresses: then the plan
// of a load holds each of them once, and the same bytes written as Intel HEX are the same image.
//
// Input: file name and address | the file.

namespace {

using namespace fuzz;

using Memory = std::map<std::uint32_t, std::uint8_t>;

// Nothing when two segments give the same address.
std::optional<Memory> MemoryOf(const host::ImageFile& image) {
  Memory memory;
  for (const host::ImageSegment& segment : image.segments) {
    Require(!segment.data.empty(), "no segment is empty");
    Require(segment.data.size() <= 0xFFFF'FFFF - segment.address, "no segment leaves the address space");
    std::uint32_t address = segment.address;
    for (const std::uint8_t byte : segment.data)
      if (!memory.emplace(address++, byte).second) return std::nullopt;
  }
  return memory;
}

void AppendHexRecord(std::string& text, std::uint8_t type, std::uint16_t offset,
                     const std::vector<std::uint8_t>& data) {
  std::vector<std::uint8_t> record = {static_cast<std::uint8_t>(data.size()),
                                      static_cast<std::uint8_t>(offset >> 8),
                                      static_cast<std::uint8_t>(offset), type};
  record.insert(record.end(), data.begin(), data.end());
  unsigned sum = 0;
  for (const std::uint8_t byte : record) sum += byte;
  record.push_back(static_cast<std::uint8_t>(0x100 - (sum & 0xFF)));
  text += ':';
  for (const std::uint8_t byte : record) {
    text += "0123456789ABCDEF"[byte >> 4];
    text += "0123456789ABCDEF"[byte & 15];
  }
  text += '\n';
}

std::string AsIntelHex(const Memory& memory) {
  std::string text;
  for (const auto& [address, byte] : memory) {
    AppendHexRecord(text, 4, 0,
                    {static_cast<std::uint8_t>(address >> 24), static_cast<std::uint8_t>(address >> 16)});
    AppendHexRecord(text, 0, static_cast<std::uint16_t>(address), {byte});
  }
  AppendHexRecord(text, 1, 0, {});
  return text;
}

host::MemoryMap SmallMap() {
  host::MemoryMap map;
  map.main = {0, 0x8000};
  map.sectorSize = 0x800;
  map.ccfg = {0x4C00'0000, 0x800};
  map.userRecord = {0x4C00'0750, 0x80};
  map.scfg = {0x4C00'1000, 0x400};
  map.otp = {0x4C00'0800, 0x400};
  map.ram = {0x2000'0000, 0x1000};
  return map;
}

void CheckPlan(const host::ImageFile& image, const Memory& memory, host::PluginCuts cuts) {
  const host::LoadPlan plan = host::PlanLoad({&image, 1}, SmallMap(), cuts);
  std::size_t planned = 0;
  std::uint64_t end = 0;
  for (const host::ImageBlock& block : plan.blocks) {
    Require(!block.data.empty() && block.address >= end, "blocks ascend and are not empty");
    end = std::uint64_t{block.address} + block.data.size();
    Memory given;
    for (const host::AddressRange& range : block.given)
      for (std::uint64_t at = range.base; at < range.End(); ++at) given[static_cast<std::uint32_t>(at)] = 0;
    planned += given.size();
    for (std::size_t i = 0; i < block.data.size(); ++i) {
      const auto address = static_cast<std::uint32_t>(block.address + i);
      const auto wanted = memory.find(address);
      Require(given.contains(address) == (wanted != memory.end()), "what is given is what the image has");
      Require(block.data[i] == (wanted != memory.end() ? wanted->second : 0xFF),
              "a byte of the plan is right");
    }
  }
  Require(planned == memory.size(), "every byte of the image is in the plan once");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const constexpr char* kNames[] = {"image", "image.elf", "image.hex", "image.s19", "image.bin"};
  constexpr std::size_t kLargest = 0x4000;  // a map of single bytes is slow
  ByteSource input({data, std::min(size, kLargest)});
  const std::uint8_t choice = input.Byte();
  std::optional<std::uint64_t> address;
  if ((choice & 0x80) != 0) address = input.Word() | std::uint64_t{choice & 0x40U} << 32;

  host::ImageFile image;
  std::optional<Memory> memory;
  try {
    image = host::ParseImage(kNames[(choice & 0x3F) % std::size(kNames)], input.Rest(), address);
  } catch (const host::InputError& error) {
    Require(std::string(error.what()).find('\n') == std::string::npos, "a refusal is one line");
    return 0;
  }
  Require(!image.segments.empty(), "an image holds something");
  memory = MemoryOf(image);
  try {
    CheckPlan(image, memory.value_or(Memory{}), host::PluginCuts::No);
    CheckPlan(image, memory.value_or(Memory{}), host::PluginCuts::Yes);
    Require(memory.has_value(), "an image that overlaps itself has no plan");
  } catch (const host::InputError&) {
    Require(!memory.has_value(), "an image without overlaps has a plan");
    return 0;
  }
  const std::string hex = AsIntelHex(*memory);
  const host::ImageFile again =
      host::ParseImage("again.hex", {reinterpret_cast<const std::uint8_t*>(hex.data()), hex.size()});
  Require(MemoryOf(again) == memory, "the image reads back from Intel HEX");
  return 0;
}
