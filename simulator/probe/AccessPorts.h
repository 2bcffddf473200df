#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <utility>

#include "../Chip.h"
#include "MemAp.h"

namespace simulator {

// Where the access ports are and what is where in them: a port's number is bits 31-24 of the debug port's
// SELECT, an offset counts from the port's first register, its bits 7-4 being the bank. Who makes the
// identification words is a code that the registry of makers never gives out.
struct PortLayout {
  std::uint8_t ahbAp = 0;
  std::uint8_t cfgAp = 1;
  std::uint8_t secAp = 2;

  std::uint8_t cfgDeviceId = 0x00;
  std::uint8_t cfgPartId = 0x04;
  std::uint8_t cfgDeviceStatus = 0x08;

  std::uint8_t secTxData = 0x00;
  std::uint8_t secTxCtl = 0x04;
  std::uint8_t secRxData = 0x08;
  std::uint8_t secRxCtl = 0x0C;
  std::uint8_t secRstCtl = 0x10;

  std::uint32_t ahbIdr = 0x1FFF'0001;  // a memory access port on an AHB
  std::uint32_t cfgIdr = 0x1FFE'0010;
  std::uint32_t secIdr = 0x1FFE'0020;

  bool debugPortSurvivesReset = true;  // the reset request through the SEC-AP leaves the debug port as it was
};

// The access ports between the debug port and the chip. A port that is not there, and a register that is not,
// reads as zero and ignores what is written to it.
class AccessPorts {
 public:
  // `attached` must outlive this object.
  explicit AccessPorts(Chip& attached, const PortLayout& where = {});

  // Nothing: the access failed, which it also does while the reset pin is low.
  std::optional<std::uint32_t> Read(std::uint8_t port, std::uint8_t offset);
  // False: the access failed.
  bool Write(std::uint8_t port, std::uint8_t offset, std::uint32_t value);

  // Debug power is off: what debuggers set in the ports is forgotten.
  void PowerDown() { ahbAp.Reset(); }
  // The chip stands still while the pin is low, and boots when it rises.
  void SetResetPin(bool high);
  [[nodiscard]] bool IsResetPinHigh() const { return resetPinIsHigh; }

  [[nodiscard]] bool IsPowered() const { return chip.IsPowered(); }
  // Whether the debug port has been restarted since the last time that this was asked.
  bool TakeRestart() { return std::exchange(restarted, false); }

 private:
  using RegisterTable = std::array<std::optional<Register>, 64>;  // by offset / 4

  [[nodiscard]] const RegisterTable* TableOf(std::uint8_t port) const;
  // Failures are Chip's and MemAp's.
  std::uint32_t ReadAny(std::uint8_t port, std::uint8_t offset);
  void WriteAny(std::uint8_t port, std::uint8_t offset, std::uint32_t value);

  Chip& chip;
  PortLayout layout;
  RegisterTable cfgRegisters;
  RegisterTable secRegisters;
  MemAp ahbAp;
  bool resetPinIsHigh = true;
  bool restarted = false;
};

}  // namespace simulator
