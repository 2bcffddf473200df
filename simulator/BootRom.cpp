#include "BootRom.h"

#include <cstdlib>

#include "CcfgSector.h"

namespace simulator {
namespace {

// Boot status codes. Those of the application and of shutdown are ours; a debugger only sees that they are
// boot code or later (0x80 and above) and no probe loop.
constexpr std::uint8_t kBooting = 0x01;
constexpr std::uint8_t kSaci = 0x20;
constexpr std::uint8_t kBootCode = 0x80;
constexpr std::uint8_t kProbeLoop = 0x81;
constexpr std::uint8_t kProbeLoopBeforeApplication = 0xC1;  // a valid CCFG: there is one to halt at
constexpr std::uint8_t kApplication = 0xC0;
constexpr std::uint8_t kShutdown = 0x8F;

}  // namespace

void BootRom::Reset(Nanoseconds now, ResetKind kind) {
  const bool valid = IsCcfgValid(description, state.ccfg);
  const bool misses = kind == ResetKind::SaciRequest && faults.NextResetMisses();
  const bool stops = kind == ResetKind::SaciRequest ? !misses : !valid;
  onTheWay = BootState::Booting;
  destination = stops ? BootState::Saci : BootState::Application;
  arrival = now + costs.boot;
  access = DebugAccessOf(description, state.ccfg);
  authorized = false;
  ccfgInForce = state.ccfg;
}

void BootRom::LeaveSaci(Nanoseconds now, SaciExit exit) {
  onTheWay = BootState::BootCode;
  arrival = now + costs.bootCode;
  switch (exit) {
    case SaciExit::Halt: destination = BootState::ProbeLoop; return;
    case SaciExit::Run:
      destination = IsCcfgValid(description, state.ccfg) ? BootState::Application : BootState::Saci;
      return;
    case SaciExit::Shutdown:
      destination = BootState::Shutdown;
      arrival = now;
      return;
  }
  std::abort();  // not a SaciExit
}

std::uint32_t BootRom::DeviceStatus(Nanoseconds now) const {
  constexpr std::uint32_t kAhbApEnabled = 1U << 24;
  return (IsAhbApEnabled(now) ? kAhbApEnabled : 0) | std::uint32_t{BootStatusCode(now)} << 8 |
         state.lifeCycle;
}

bool BootRom::IsAhbApEnabled(Nanoseconds now) const {
  const BootState present = State(now);
  if (present == BootState::Booting || present == BootState::Shutdown) return false;
  return access == DebugAccess::Open || (authorized && present != BootState::Saci);
}

std::uint8_t BootRom::BootStatusCode(Nanoseconds now) const {
  switch (State(now)) {
    case BootState::Booting: return kBooting;
    case BootState::Saci: return kSaci;
    case BootState::BootCode: return kBootCode;
    case BootState::ProbeLoop:
      return IsCcfgValid(description, state.ccfg) ? kProbeLoopBeforeApplication : kProbeLoop;
    case BootState::Application: return kApplication;
    case BootState::Shutdown: return kShutdown;
  }
  std::abort();  // not a BootState
}

}  // namespace simulator
