#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "Require.h"
#include "host/device/DeviceDescription.h"
#include "host/device/InputError.h"
#include "host/probe/simulated/SimulatedProbe.h"

// Arbitrary text as a Flash Properties XML file beside the real ones, whose settings it can include. It is
// refused with one line that names the file, or it describes a device that can be relied upon.

namespace {

using namespace fuzz;

constexpr std::string_view kFile = TOVIK_DEVICES_DIR "/fuzzed.xml";

void CheckProperties(const host::DeviceDescription& device) {
  std::set<std::string> names;
  for (const host::FlashProperty& property : device.properties) {
    Require(names.insert(property.name).second, "a property is described once");
    Require(device.Find(property.name) == &property, "a property is found by its name");
    Require(!property.IsSetting() || host::NormalizedValue(property, property.value) == property.value,
            "a setting's default is one of its values");
  }
}

void CheckMap(const host::MemoryMap& map) {
  Require(map.sectorSize != 0 && map.main.size % map.sectorSize == 0, "MAIN flash is whole sectors");
  const host::AddressRange regions[] = {map.main, map.ccfg, map.scfg, map.otp, map.ram};
  for (const host::AddressRange& region : regions) {
    Require(region.End() <= 0x1'0000'0000, "a region lies in the address space");
    for (const host::AddressRange& other : regions)
      Require(&region == &other || region.size == 0 || other.size == 0 || region.End() <= other.base ||
                  other.End() <= region.base,
              "regions do not overlap");
  }
  Require(map.userRecord.base >= map.ccfg.base && map.userRecord.End() <= map.ccfg.End(),
          "the user record lies in the CCFG");
}

void CheckPorts(const host::AccessPorts& ports) {
  std::set<std::string> names;
  for (const host::PortRegister& one : ports.registers)
    Require(names.insert(one.name).second && one.offset % 4 == 0, "a register is a word, described once");
  for (const host::PortRegister& one : host::AccessPorts().registers)
    Require(names.contains(one.name), "no register is missing");
}

// A chip is made as described, or the description is refused.
void CheckChip(const host::DeviceDescription& device) {
  constexpr std::uint32_t kLargest = 1U << 22;
  const host::ChipFacts& chip = device.chip;
  if (chip.mainSize > kLargest || chip.ram.size > kLargest || chip.ccfg.size > kLargest ||
      chip.scfg.size > kLargest || chip.otp.size > kLargest)
    return;
  try {
    const host::SimulatedProbe probe(device, {});
    Require(probe.Picture().main.size() == chip.mainSize, "the chip has the MAIN flash described");
  } catch (const host::InputError&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view xml(reinterpret_cast<const char*>(data), size);
  host::DeviceDescription device;
  try {
    device = host::ParseDeviceDescription(xml, kFile);
  } catch (const host::InputError& error) {
    Require(std::string_view(error.what()).starts_with(TOVIK_DEVICES_DIR), "a refusal names the file");
    return 0;
  }
  CheckProperties(device);
  CheckMap(device.map);
  CheckPorts(device.ports);
  CheckChip(device);
  return 0;
}
