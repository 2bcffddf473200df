#include "AccessPorts.h"

#include <stdexcept>

namespace simulator {

AccessPorts::AccessPorts(Chip& attached, const PortLayout& where)
    : chip(attached), layout(where), ahbAp(attached, where.ahbIdr) {
  cfgRegisters[layout.cfgDeviceId / 4] = Register::CfgApDeviceId;
  cfgRegisters[layout.cfgPartId / 4] = Register::CfgApPartId;
  cfgRegisters[layout.cfgDeviceStatus / 4] = Register::CfgApDeviceStatus;
  secRegisters[layout.secTxData / 4] = Register::SecApTxData;
  secRegisters[layout.secTxCtl / 4] = Register::SecApTxCtl;
  secRegisters[layout.secRxData / 4] = Register::SecApRxData;
  secRegisters[layout.secRxCtl / 4] = Register::SecApRxCtl;
  secRegisters[layout.secRstCtl / 4] = Register::SecApRstCtl;
}

std::optional<std::uint32_t> AccessPorts::Read(std::uint8_t port, std::uint8_t offset) {
  if (!resetPinIsHigh) return std::nullopt;
  try {
    return ReadAny(port, offset);
  } catch (const std::runtime_error&) {
    return std::nullopt;
  }
}

bool AccessPorts::Write(std::uint8_t port, std::uint8_t offset, std::uint32_t value) {
  if (!resetPinIsHigh) return false;
  try {
    WriteAny(port, offset, value);
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

std::uint32_t AccessPorts::ReadAny(std::uint8_t port, std::uint8_t offset) {
  if (port == layout.ahbAp) return ahbAp.Read(offset);
  const RegisterTable* registers = TableOf(port);
  if (registers == nullptr) return 0;
  if (offset == kIdrOffset) return port == layout.secAp ? layout.secIdr : layout.cfgIdr;
  const auto which = (*registers)[offset / 4];
  return which ? chip.ReadRegister(*which) : 0;
}

void AccessPorts::WriteAny(std::uint8_t port, std::uint8_t offset, std::uint32_t value) {
  if (port == layout.ahbAp) return ahbAp.Write(offset, value);
  const RegisterTable* registers = TableOf(port);
  const auto which = registers != nullptr ? (*registers)[offset / 4] : std::nullopt;
  if (!which) return;
  chip.WriteRegister(*which, value);
  if (which == Register::SecApRstCtl && value == kResetIntoSaci) {
    ahbAp.Reset();
    restarted = !layout.debugPortSurvivesReset;
  }
}

void AccessPorts::SetResetPin(bool high) {
  const bool rises = high && !resetPinIsHigh;
  resetPinIsHigh = high;
  if (!rises || !chip.IsPowered()) return;
  ahbAp.Reset();
  chip.PinReset();
}

const AccessPorts::RegisterTable* AccessPorts::TableOf(std::uint8_t port) const {
  if (port == layout.secAp) return &secRegisters;
  return port == layout.cfgAp ? &cfgRegisters : nullptr;
}

}  // namespace simulator
