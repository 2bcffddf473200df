#include "Chip.h"

#include <cstdlib>
#include <string>
#include <utility>

namespace simulator {
namespace {

ChipDescription Checked(ChipDescription description) {
  CheckDescription(description);
  return description;
}

void CheckSize(const char* memory, std::size_t size, std::uint32_t expected) {
  if (size != expected)
    throw std::runtime_error(std::string(memory) + " holds " + std::to_string(size) + " bytes instead of " +
                             std::to_string(expected));
}

}  // namespace

Chip::Chip(ChipDescription chipDescription, CostModel costModel, Faults askedFaults)
    : description(Checked(std::move(chipDescription))),
      costs(costModel),
      faults(std::move(askedFaults)),
      state(BlankState(description)) {
  rom.Reset(clock.Now(), ResetKind::Pin);
}

template <typename Access>
auto Chip::Powered(Access&& access) {
  if (!powered) throw std::runtime_error("The chip does not answer: it has no power");
  try {
    return access();
  } catch (const PowerLost&) {
    powered = false;
    throw;
  }
}

std::uint32_t Chip::ReadRegister(Register which) {
  return Powered([&]() -> std::uint32_t {
    switch (which) {
      case Register::SecApTxData: return 0;  // write only
      case Register::SecApTxCtl: return saci.ReadTxControl(clock.Now());
      case Register::SecApRxData: return saci.ReadRxData(clock.Now());
      case Register::SecApRxCtl: return saci.ReadRxControl(clock.Now());
      case Register::SecApRstCtl: return 0;
      case Register::CfgApDeviceId: return description.deviceId;
      case Register::CfgApPartId: return description.partId;
      case Register::CfgApDeviceStatus:
        saci.AdvanceTo(clock.Now());  // the command that leaves SACI may be due
        return rom.DeviceStatus(clock.Now());
    }
    std::abort();  // not a Register
  });
}

void Chip::WriteRegister(Register which, std::uint32_t value) {
  Powered([&] {
    switch (which) {
      case Register::SecApTxData: saci.WriteTxData(value, clock.Now()); return;
      case Register::SecApTxCtl: saci.WriteTxControl(value, clock.Now()); return;
      case Register::SecApRstCtl:
        if (value != kResetIntoSaci) return;
        saci.Reset();
        rom.Reset(clock.Now(), ResetKind::SaciRequest);
        return;
      case Register::SecApRxData:
      case Register::SecApRxCtl:
      case Register::CfgApDeviceId:
      case Register::CfgApPartId:
      case Register::CfgApDeviceStatus: return;  // read only
    }
    std::abort();  // not a Register
  });
}

void Chip::ReadMemory(std::uint32_t address, std::span<std::uint8_t> bytes) {
  Powered([&] {
    saci.AdvanceTo(clock.Now());
    RequireAhbAp();
    memory.BusRead(address, bytes);
  });
}

void Chip::WriteMemory(std::uint32_t address, std::span<const std::uint8_t> bytes) {
  Powered([&] {
    saci.AdvanceTo(clock.Now());
    RequireAhbAp();
    memory.BusWrite(address, bytes);
  });
}

void Chip::PinReset() {
  Powered([&] {
    saci.Reset();
    rom.Reset(clock.Now(), ResetKind::Pin);
  });
}

void Chip::PowerCycle() {
  powered = true;
  state.ram.assign(description.ramSize, 0);
  PinReset();
}

void Chip::Restore(ChipState contents) {
  CheckSize("MAIN", contents.main.size(), description.mainSize);
  CheckSize("CCFG", contents.ccfg.size(), description.ccfgSize);
  CheckSize("SCFG", contents.scfg.size(), description.scfgSize);
  CheckSize("OTP", contents.otp.size(), description.otpSize);
  CheckSize("RAM", contents.ram.size(), description.ramSize);
  state = std::move(contents);
  powered = true;
  PinReset();
}

void Chip::RequireAhbAp() const {
  if (!rom.IsAhbApEnabled(clock.Now())) throw std::runtime_error("The AHB access port is not enabled");
}

}  // namespace simulator
