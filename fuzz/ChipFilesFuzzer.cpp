#include <cstdint>
#include <stdexcept>
#include <vector>

#include "ByteSource.h"
#include "Require.h"
#include "simulator/ChipStore.h"
#include "simulator/Sha256.h"

// Arbitrary bytes as a chip file, with a right checksum or whatever the input ends with. A file is refused,
// or the chip in it is one of the device: then it can be kept again, and is the same.
//
// Input: whether to put the right checksum behind | the file.

namespace {

using namespace fuzz;

simulator::ChipDescription TinyChip() {
  simulator::ChipDescription chip;
  chip.name = "tiny";
  chip.deviceId = 0x0B7A10A1;
  chip.partId = 0x00015120;
  chip.mainSize = 32;
  chip.sectorSize = 16;
  chip.ccfgSize = 8;
  chip.scfgSize = 4;
  chip.otpSize = 4;
  chip.ramSize = 8;
  return chip;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const simulator::ChipDescription chip = TinyChip();
  ByteSource input({data, size});
  const bool sealed = input.Byte() % 4 != 0;
  const auto rest = input.Rest();
  std::vector<std::uint8_t> file(rest.begin(), rest.end());
  if (sealed) {
    const auto digest = simulator::Sha256(file);
    file.insert(file.end(), digest.begin(), digest.end());
  }

  simulator::ChipState state;
  try {
    state = simulator::UnpackChip(chip, file);
  } catch (const std::runtime_error&) {
    return 0;
  }
  const std::vector<std::uint8_t> again = simulator::PackChip(chip, state);
  Require(again.size() == file.size(), "a chip file holds nothing but the chip");
  Require(simulator::UnpackChip(chip, again) == state, "the chip reads back");
  return 0;
}
