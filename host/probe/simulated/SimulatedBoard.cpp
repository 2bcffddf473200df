#include "host/probe/simulated/SimulatedBoard.h"

#include <stdexcept>
#include <string>

#include "host/device/InputError.h"

namespace host {

namespace {

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

SimulatedBoard::SimulatedBoard(const DeviceDescription& device, const SimulatedChipOptions& options) {
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
  target = std::make_unique<simulator::SwdTarget>(*chip);
}

std::string DeviceOfChipFile(const std::filesystem::path& chipFile) {
  try {
    return simulator::ChipFile::DeviceName(chipFile);
  } catch (const std::exception& error) {
    throw InputError(error.what());
  }
}

ChipPicture SimulatedBoard::Picture() const {
  const simulator::ChipState& state = chip->State();
  return {state.main, state.ccfg, state.scfg, state.otp, state.ram};
}

void SimulatedBoard::RequireSavable() const {
  try {
    if (file) file->RequireWritable(chip->Description());
  } catch (const std::exception& error) {
    throw InputError(error.what());
  }
}

void SimulatedBoard::Save() {
  if (!file || chip->State() == saved) return;
  file->Save(chip->Description(), chip->State());
  saved = chip->State();
}

}  // namespace host
