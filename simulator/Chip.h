#pragma once

#include <cstdint>
#include <span>
#include <stdexcept>

#include "BootRom.h"
#include "ChipDescription.h"
#include "ChipMemory.h"
#include "ChipState.h"
#include "CostModel.h"
#include "Faults.h"
#include "Hsm.h"
#include "Registers.h"
#include "SaciServer.h"
#include "VirtualClock.h"

namespace simulator {

// One chip, as its debug ports show it. Accesses happen at the clock's present moment and take no time: what
// the wire costs is the probe's affair. All accesses throw std::runtime_error when the chip
// cannot answer: no power, or an address that the bus refuses.
class Chip {
 public:
  // A new chip, powered on at time 0. Throws std::runtime_error for a description that cannot be.
  explicit Chip(ChipDescription description, CostModel costs = {}, Faults faults = {});
  Chip(const Chip&) = delete;
  Chip& operator=(const Chip&) = delete;

  [[nodiscard]] const ChipDescription& Description() const { return description; }
  VirtualClock& Clock() { return clock; }
  Faults& AskedFaults() { return faults; }  // more may be added at any time

  std::uint32_t ReadRegister(Register which);
  void WriteRegister(Register which, std::uint32_t value);

  // Through the AHB-AP: RAM, and all flash for reading. Any length and alignment inside one region. Throws
  // when the port is closed, when the range is in no region, and for writes to flash.
  void ReadMemory(std::uint32_t address, std::span<std::uint8_t> bytes);
  void WriteMemory(std::uint32_t address, std::span<const std::uint8_t> bytes);

  void PinReset();
  // Ends a power cut, too. RAM is lost.
  void PowerCycle();
  [[nodiscard]] bool IsPowered() const { return powered; }

  // The contents of all memories, without the ports' rules: for files, dumps and tests.
  [[nodiscard]] const ChipState& State() const { return state; }
  void SetLifeCycle(std::uint8_t lifeCycle) { state.lifeCycle = lifeCycle; }
  // Puts a chip with these contents in place of the present one and powers it on. Throws std::runtime_error,
  // changing nothing, when a memory's size is not the description's.
  void Restore(ChipState contents);

 private:
  // Runs an access; a power cut in the middle of it leaves the chip dead.
  template <typename Access>
  auto Powered(Access&& access);
  void RequireAhbAp() const;

  ChipDescription description;
  CostModel costs;
  Faults faults;
  VirtualClock clock;
  ChipState state;
  ChipMemory memory{description, state, faults};
  Hsm hsm{description, state.hsm, faults};
  BootRom rom{description, costs, state, faults};
  SaciServer saci{description, costs, memory, rom, hsm, faults};
  bool powered = true;
};

}  // namespace simulator
