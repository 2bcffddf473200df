#include "host/probe/simulated/SimulatedProbe.h"

#include <fmt/format.h>

#include <stdexcept>
#include <thread>
#include <utility>

#include "host/device/InputError.h"
#include "simulator/Registers.h"

namespace host {

namespace {

constexpr std::uint32_t kAhbApEnabled = 1U << 24;  // of the device status register

simulator::ByteRange ToByteRange(CoveredRange range) {
  return {range.offset, range.length};
}

simulator::HsmKind ToHsmKind(HsmForm form) {
  switch (form) {
    case HsmForm::None: return simulator::HsmKind::None;
    case HsmForm::Whole: return simulator::HsmKind::Whole;
    case HsmForm::Records: return simulator::HsmKind::Records;
  }
  return simulator::HsmKind::None;
}

simulator::ChipDescription Describe(const DeviceDescription& device) {
  const ChipFacts& facts = device.chip;
  simulator::ChipDescription chip;
  chip.name = device.name;
  chip.deviceId = facts.deviceId;
  chip.partId = facts.partId;
  chip.mainSize = facts.mainSize;
  chip.sectorSize = facts.sectorSize;
  chip.ccfgBase = facts.ccfg.base;
  chip.ccfgSize = facts.ccfg.size;
  chip.scfgBase = facts.scfg.base;
  chip.scfgSize = facts.scfg.size;
  chip.otpBase = facts.otp.base;
  chip.otpSize = facts.otp.size;
  chip.ramBase = facts.ram.base;
  chip.ramSize = facts.ram.size;
  chip.userRecord = ToByteRange(facts.userRecord);
  chip.bootCfgCrc = ToByteRange(facts.bootCrc);
  chip.ccfgCrc = ToByteRange(facts.ccfgCrc);
  chip.userRecordCrc = ToByteRange(facts.userRecordCrc);
  chip.debugCfgCrc = ToByteRange(facts.debugCrc);
  chip.scfgCrc = ToByteRange(facts.scfgCrc);
  chip.chipEraseRetainOffset = facts.retainOffset;
  chip.chipEraseRetainWords = facts.retainWords;
  chip.retainGroupShift = facts.retainGroupShift;
  chip.debugTypeOffset = facts.authorizationTypeOffset;
  chip.debugIdOffset = facts.authorizationIdOffset;
  chip.debugHashOffset = facts.authorizationHashOffset;
  chip.hsm = ToHsmKind(facts.hsm);
  chip.lifeCycle = static_cast<std::uint8_t>(facts.lifeCycle);
  return chip;
}

}  // namespace

SimulatedProbe::SimulatedProbe(const DeviceDescription& device, const SimulatedChipOptions& options,
                               std::string_view timingName) {
  const auto timing = simulator::FindProbeTiming(timingName);
  if (!timing)
    throw InputError(fmt::format("there is no probe \"sim:{}\": sim:hs and sim:fs are known", timingName));
  try {
    simulator::Faults faults;
    for (const std::string& fault : options.faults) faults.Add(fault);
    const simulator::ChipDescription description = Describe(device);
    chip = std::make_unique<simulator::Chip>(description, simulator::CostModel{}, faults);
    if (options.file)
      file.emplace(options.missing == MissingChip::Make ? simulator::ChipFile::OpenOrCreate(*options.file)
                                                        : simulator::ChipFile::OpenExisting(*options.file));
    if (file && !file->IsEmpty()) {
      saved = file->Load(description);
      isNew = false;
      chip->Restore(*saved);
    }
    if (options.lifeCycle) chip->SetLifeCycle(*options.lifeCycle);
  } catch (const std::exception& error) {
    throw InputError(error.what());
  }
  ports = std::make_unique<simulator::DebugPorts>(*chip, *timing);
  if (options.inRealTime) realStart = std::chrono::steady_clock::now();
}

void SimulatedProbe::KeepPace() const {
  if (realStart) std::this_thread::sleep_until(*realStart + std::chrono::nanoseconds(ElapsedNs()));
}

std::string DeviceOfChipFile(const std::filesystem::path& chipFile) {
  try {
    return simulator::ChipFile::DeviceName(chipFile);
  } catch (const std::exception& error) {
    throw InputError(error.what());
  }
}

void SimulatedProbe::Connect(Core core) {
  ports->Connect();
  if (core == Core::Cortex &&
      (chip->ReadRegister(simulator::Register::CfgApDeviceStatus) & kAhbApEnabled) == 0)
    throw std::runtime_error("Cortex: cannot be connected, its debug port is closed");
}

// Letting go of a core costs nothing on the wire.
void SimulatedProbe::Disconnect(Core) {}

void SimulatedProbe::PinReset() {
  ports->PinReset();
}

std::optional<std::uint32_t> SimulatedProbe::FindRegister(std::string_view name) const {
  const auto found = simulator::FindRegister(name);
  if (!found) return std::nullopt;
  return static_cast<std::uint32_t>(*found);
}

std::uint32_t SimulatedProbe::ReadRegister(std::uint32_t address) {
  return ports->ReadRegister(address);
}

void SimulatedProbe::WriteRegister(std::uint32_t address, std::uint32_t value) {
  ports->WriteRegister(address, value);
}

void SimulatedProbe::PushWords(std::span<const std::uint32_t> words) {
  ports->WriteTxWords(words);
  KeepPace();
}

void SimulatedProbe::PopWords(std::span<std::uint32_t> words) {
  ports->ReadRxWords(words);
}

void SimulatedProbe::WriteMemory(std::uint32_t address, std::span<const std::uint8_t> bytes, std::size_t) {
  ports->WriteMemory(address, bytes);
}

void SimulatedProbe::ReadMemory(std::uint32_t address, std::span<std::uint8_t> bytes, std::size_t) {
  ports->ReadMemory(address, bytes);
}

void SimulatedProbe::Sleep(std::uint32_t milliseconds) {
  ports->Sleep(milliseconds);
  KeepPace();
}

std::uint64_t SimulatedProbe::ElapsedNs() const {
  return chip->Clock().Now();
}

ChipPicture SimulatedProbe::Picture() const {
  const simulator::ChipState& state = chip->State();
  ChipPicture picture{state.main, state.ccfg, state.scfg, state.otp, state.ram, {}, {}};
  for (const auto& wear : chip->MainWear()) picture.mainWear.push_back({wear.erases, wear.programs});
  const simulator::WriteCounts& writes = chip->Writes();
  picture.writes = {writes.ccfg, writes.scfg, writes.otp, writes.ram};
  return picture;
}

void SimulatedProbe::RequireSavable() const {
  try {
    if (file) file->RequireWritable(chip->Description());
  } catch (const std::exception& error) {
    throw InputError(error.what());
  }
}

void SimulatedProbe::Save() {
  if (!file || chip->State() == saved) return;
  file->Save(chip->Description(), chip->State());
  saved = chip->State();
}

}  // namespace host
