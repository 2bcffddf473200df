#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ByteSource.h"
#include "Require.h"
#include "host/device/InputError.h"
#include "host/image/ImageFile.h"
#include "host/plan/ImagePlan.h"
#include "tests/support/ImageRules.h"

// Arbitrary bytes as an image file. It is refused with one line, or its bytes have addresses: then the plan
// of a load holds each of them once, and what is written as Intel HEX and as S-records is read back.
//
// Input: file name and address | the file.

namespace {

using namespace fuzz;

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const constexpr char* kNames[] = {"image", "image.elf", "image.hex", "image.s19", "image.bin"};
  constexpr std::size_t kLargest = 0x4000;  // a map of single bytes is slow
  ByteSource input({data, std::min(size, kLargest)});
  const std::uint8_t choice = input.Byte();
  std::optional<std::uint64_t> address;
  if ((choice & 0x80) != 0) address = input.Word() | std::uint64_t{choice & 0x40U} << 32;

  host::ImageFile image;
  try {
    image = host::ParseImage(kNames[(choice & 0x3F) % std::size(kNames)], input.Rest(), address);
  } catch (const host::InputError& error) {
    Require(std::string(error.what()).find('\n') == std::string::npos, "a refusal is one line");
    return 0;
  }
  RequireKept(BrokenImageRule(image));
  for (const host::ImageSegment& segment : image.segments) RequireKept(BrokenWriterRule(segment));
  const std::optional<Memory> memory = MemoryOf(image);
  try {
    for (const host::PluginCuts cuts : {host::PluginCuts::No, host::PluginCuts::Yes})
      RequireKept(BrokenPlanRule(host::PlanLoad({&image, 1}, SmallMap(), cuts), memory.value_or(Memory{})));
    Require(memory.has_value(), "an image that overlaps itself has no plan");
  } catch (const host::InputError&) {
    Require(!memory.has_value(), "an image without overlaps has a plan");
  }
  return 0;
}
