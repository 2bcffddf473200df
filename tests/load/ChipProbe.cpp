#include "ChipProbe.h"

#include <stdexcept>

#include "simulator/Registers.h"

namespace {

simulator::HsmKind KindOf(host::HsmForm form) {
  switch (form) {
    case host::HsmForm::None: return simulator::HsmKind::None;
    case host::HsmForm::Whole: return simulator::HsmKind::Whole;
    case host::HsmForm::Records: return simulator::HsmKind::Records;
  }
  return simulator::HsmKind::None;
}

simulator::ChipDescription Describe(const host::DeviceDescription& device) {
  const host::ChipFacts& facts = device.chip;
  const auto range = [](host::CoveredRange covered) {
    return simulator::ByteRange{covered.offset, covered.length};
  };
  return {
      .name = device.name,
      .deviceId = facts.deviceId,
      .partId = facts.partId,
      .mainSize = facts.mainSize,
      .sectorSize = facts.sectorSize,
      .ccfgBase = facts.ccfg.base,
      .ccfgSize = facts.ccfg.size,
      .scfgBase = facts.scfg.base,
      .scfgSize = facts.scfg.size,
      .otpBase = facts.otp.base,
      .otpSize = facts.otp.size,
      .ramBase = facts.ram.base,
      .ramSize = facts.ram.size,
      .userRecord = range(facts.userRecord),
      .bootCfgCrc = range(facts.bootCrc),
      .ccfgCrc = range(facts.ccfgCrc),
      .userRecordCrc = range(facts.userRecordCrc),
      .debugCfgCrc = range(facts.debugCrc),
      .scfgCrc = range(facts.scfgCrc),
      .chipEraseRetainOffset = facts.retainOffset,
      .chipEraseRetainWords = facts.retainWords,
      .retainGroupShift = facts.retainGroupShift,
      .debugTypeOffset = facts.authorizationTypeOffset,
      .debugIdOffset = facts.authorizationIdOffset,
      .debugHashOffset = facts.authorizationHashOffset,
      .hsm = KindOf(facts.hsm),
      .lifeCycle = static_cast<std::uint8_t>(facts.lifeCycle),
  };
}

}  // namespace

ChipProbe::ChipProbe(const host::DeviceDescription& device)
    : chip(std::make_unique<simulator::Chip>(Describe(device))),
      ports(*chip, *simulator::FindProbeTiming("hs")) {}

bool ChipProbe::IsDebuggingOpen() {
  constexpr std::uint32_t kAhbApEnabled = 1U << 24;
  return (chip->ReadRegister(simulator::Register::CfgApDeviceStatus) & kAhbApEnabled) != 0;
}

void ChipProbe::Connect(host::Core core) {
  ports.Connect();
  if (core == host::Core::Cortex && !IsDebuggingOpen())
    throw std::runtime_error("Cortex: cannot be connected, its debug port is closed");
}

std::optional<std::uint32_t> ChipProbe::FindRegister(std::string_view name) const {
  const auto found = simulator::FindRegister(name);
  if (!found) return std::nullopt;
  return static_cast<std::uint32_t>(*found);
}
