#pragma once

#include <cstdint>
#include <vector>

#include "ChipDescription.h"
#include "ChipState.h"
#include "CostModel.h"
#include "Faults.h"

namespace simulator {

enum class BootState : std::uint8_t { Booting, Saci, BootCode, ProbeLoop, Application, Shutdown };
enum class ResetKind : std::uint8_t { Pin, SaciRequest };
enum class SaciExit : std::uint8_t { Halt, Run, Shutdown };
enum class DebugAccess : std::uint8_t { Open, Password, Closed };

// The boot ROM between reset and application.
//
//   reset --boot time--> Saci          on request, or when the CCFG is not valid
//                    \-> Application   on a pin reset with a valid CCFG
//   Saci --halt--> BootCode --boot code time--> ProbeLoop
//        --run---> BootCode --boot code time--> Application, or Saci again without a valid CCFG
//        --shutdown--> Shutdown, until the next reset
//
// Debug authorization is the CCFG's at the moment of the reset; programming another one changes nothing
// before the next reset. All times are the virtual clock's.
class BootRom {
 public:
  BootRom(const ChipDescription& chip, const CostModel& times, const ChipState& contents, Faults& asked)
      : description(chip), costs(times), state(contents), faults(asked) {}

  void Reset(Nanoseconds now, ResetKind kind);
  // Only while in SACI.
  void LeaveSaci(Nanoseconds now, SaciExit exit);

  [[nodiscard]] BootState State(Nanoseconds now) const { return now < arrival ? onTheWay : destination; }
  [[nodiscard]] bool InSaci(Nanoseconds now) const { return State(now) == BootState::Saci; }
  // When the ROM reaches the state it is on the way to, or reached it.
  [[nodiscard]] Nanoseconds Arrival() const { return arrival; }
  // The CFG-AP's device status word.
  [[nodiscard]] std::uint32_t DeviceStatus(Nanoseconds now) const;
  // Opened when debugging is authorized: with the boot where the CCFG leaves it open, when SACI is left where
  // a password was needed.
  [[nodiscard]] bool IsAhbApEnabled(Nanoseconds now) const;

  [[nodiscard]] DebugAccess Access() const { return access; }
  [[nodiscard]] bool MayDebug() const { return access == DebugAccess::Open || authorized; }
  // The CCFG as it was at the last reset: its password is the one in force.
  [[nodiscard]] const std::vector<std::uint8_t>& CcfgInForce() const { return ccfgInForce; }
  // The password was right: debugging is allowed until the next reset.
  void Authorize() { authorized = true; }
  // Only TESTFT, ENGRDEV and PRODDEV parts (3, 4, 5) leave SACI.
  [[nodiscard]] bool LifeCycleLetsSaciGo() const { return state.lifeCycle >= 3 && state.lifeCycle <= 5; }

 private:
  [[nodiscard]] std::uint8_t BootStatusCode(Nanoseconds now) const;

  const ChipDescription& description;
  const CostModel& costs;
  const ChipState& state;
  Faults& faults;
  BootState onTheWay = BootState::Booting;
  BootState destination = BootState::Saci;
  Nanoseconds arrival = 0;
  DebugAccess access = DebugAccess::Open;
  bool authorized = false;
  std::vector<std::uint8_t> ccfgInForce;
};

}  // namespace simulator
