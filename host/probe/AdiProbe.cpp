#include "host/probe/AdiProbe.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace host {

namespace {

constexpr std::uint32_t kAhbApEnabled = 1U << 24;  // CFGAP_DEVICESTATUS
constexpr std::uint32_t kRxDataReady = 1U << 0;    // SECAP_RXCTL
constexpr std::uint32_t kHsmError = 1U << 3;       // SECAP_RXCTL, of the word that is ready

// A plug-in looks where the ROM stands as soon as it has connected again after a reset, and some look only
// once. The ROM is up within half of this.
constexpr std::uint32_t kBootMs = 10;
constexpr std::uint32_t kResetPulseMs = 10;
constexpr std::uint32_t kLookForCancelMs = 50;

std::uint32_t AddressOf(ApRegister at) {
  return std::uint32_t{at.port} << 16 | at.offset;
}

}  // namespace

// A chip that has fallen silent may have lost its power, and its debug port all that it was told.
template <typename Accesses>
auto AdiProbe::Try(Accesses&& accesses) {
  if (isLost) access->Connect();
  isLost = false;
  try {
    return std::forward<Accesses>(accesses)();
  } catch (const ProbeError& error) {
    isLost = error.Which() == ProbeError::Kind::NoTarget;
    if (isLost) Forget();
    throw;
  }
}

AdiProbe::AdiProbe(std::unique_ptr<ApAccess> portAccess, AccessPorts portMap, ReadAhead readAhead)
    : access(std::move(portAccess)),
      ports(std::move(portMap)),
      readsAhead(readAhead),
      openedNs(access->NowNs()),
      txData(Named("SECAP_TXDATA")),
      rxData(Named("SECAP_RXDATA")),
      rxFlags(Named("SECAP_RXCTL")),
      resetControl(Named("SECAP_RSTCTL")),
      memory(*access, ports.memory) {}

AdiProbe::~AdiProbe() {
  access->Close();
}

void AdiProbe::Connect(Core core) {
  if (core == Core::DebugPort || !isConnected) {
    Forget();
    isConnected = false;
    isLost = true;  // until it is there again
    access->Connect();
    isLost = false;
    Sleep(kBootMs);
    isConnected = true;
  }
  if (core != Core::Cortex) return;
  const ApRegister status = Named("CFGAP_DEVICESTATUS");
  if ((Try([&] { return access->ReadAp(status); }) & kAhbApEnabled) == 0)
    throw std::runtime_error("Cortex: cannot be connected, its debug port is closed");
  memory.Forget();
}

// Nothing on the wire: another connection may follow at once, and Close takes leave in the end.
void AdiProbe::Disconnect(Core core) {
  if (core == Core::DebugPort) isConnected = false;
}

void AdiProbe::PinReset() {
  Forget();
  try {
    access->SetResetPin(false);
    Sleep(kResetPulseMs);
  } catch (...) {
    LetGoOfReset();
    throw;
  }
  access->SetResetPin(true);
}

// The pin may be low though nobody could say so, and a chip in reset answers nothing.
void AdiProbe::LetGoOfReset() noexcept {
  try {
    access->SetResetPin(true);
  } catch (...) {
    isLost = true;
  }
}

std::optional<std::uint32_t> AdiProbe::FindRegister(std::string_view name) const {
  for (const PortRegister& one : ports.registers)
    if (one.name == name) return AddressOf({one.port, one.offset});
  return std::nullopt;
}

std::uint32_t AdiProbe::ReadRegister(std::uint32_t address) {
  const ApRegister at = At(address);
  if (fetched && at == rxFlags) return ReadFlags();
  if (fetched && at == rxData) return TakeFetched();
  return Try([&] { return access->ReadAp(at); });
}

void AdiProbe::WriteRegister(std::uint32_t address, std::uint32_t value) {
  const ApRegister at = At(address);
  const bool isReset = at == resetControl;
  if (isReset) Forget();
  Try([&] { access->WriteAp(at, value, isReset ? AfterWrite::MayBeSilent : AfterWrite::Answers); });
}

void AdiProbe::PushWords(std::span<const std::uint32_t> words) {
  if (readsAhead == ReadAhead::No || fetched) {
    Try([&] { access->WriteApBlock(txData, words); });
    return;
  }
  fetched = Try([&] { return access->WriteApBlockAndFetch(txData, words, {rxFlags, kRxDataReady, rxData}); });
  flagsWereSeen = false;
}

void AdiProbe::PopWords(std::span<std::uint32_t> words) {
  if (words.empty()) return;
  if (fetched) {
    words[0] = TakeFetched();
    words = words.subspan(1);
  }
  if (!words.empty()) Try([&] { access->ReadApBlock(rxData, words); });
}

// Seen once more, the flags are the present ones, but for what speaks of the word.
std::uint32_t AdiProbe::ReadFlags() {
  if (!std::exchange(flagsWereSeen, true)) return fetched->flags;
  const std::uint32_t ofTheWord = fetched->flags & (kRxDataReady | kHsmError);
  return Try([&] { return access->ReadAp(rxFlags); }) | ofTheWord;
}

std::uint32_t AdiProbe::TakeFetched() {
  access->RequireGoingOn();
  const std::uint32_t word = fetched->word;
  fetched.reset();
  return word;
}

void AdiProbe::WriteMemory(std::uint32_t address, std::span<const std::uint8_t> bytes,
                           std::size_t elementSize) {
  Try([&] { memory.Write(address, bytes, elementSize); });
}

void AdiProbe::ReadMemory(std::uint32_t address, std::span<std::uint8_t> bytes, std::size_t elementSize) {
  Try([&] { memory.Read(address, bytes, elementSize); });
}

void AdiProbe::Sleep(std::uint32_t milliseconds) {
  for (std::uint32_t left = milliseconds; left > 0;) {
    access->RequireGoingOn();
    const std::uint32_t some = std::min(left, kLookForCancelMs);
    access->Sleep(some);
    left -= some;
  }
}

ApRegister AdiProbe::Named(std::string_view name) const {
  if (const auto address = FindRegister(name)) return At(*address);
  throw std::runtime_error(fmt::format("there is no register \"{}\"", name));
}

ApRegister AdiProbe::At(std::uint32_t address) const {
  for (const PortRegister& one : ports.registers)
    if (AddressOf({one.port, one.offset}) == address) return {one.port, one.offset};
  throw std::runtime_error(fmt::format("No register at address 0x{:08X}", address));
}

void AdiProbe::Forget() {
  memory.Forget();
  fetched.reset();
}

}  // namespace host
