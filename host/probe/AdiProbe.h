#pragma once

#include <memory>
#include <optional>

#include "host/device/AccessPorts.h"
#include "host/probe/ApAccess.h"
#include "host/probe/DebugProbe.h"
#include "host/probe/MemoryPort.h"

namespace host {

// Whether the word that the chip answers a command with is fetched behind the command's words, so that the
// look at the flags and the read of the word cost no round trips.
enum class ReadAhead { No, Yes };

// What a plug-in asks of a target, as accesses to the access ports of an ARM debug interface. The address of
// a register is its port's number in bits 23-16 and its offset below.
//
// A word that was fetched ahead is handed out by the next read of the data register. Until then the flags
// show it, as they would have a moment after the command's words: a reset or a new connection drops it, as
// the chip drops the word.
class AdiProbe : public DebugProbe {
 public:
  // Registers and ports are where `portMap` says.
  AdiProbe(std::unique_ptr<ApAccess> portAccess, AccessPorts portMap, ReadAhead readAhead = ReadAhead::Yes);
  ~AdiProbe() override;

  void Connect(Core core) override;
  void Disconnect(Core core) override;
  void PinReset() override;
  [[nodiscard]] std::optional<std::uint32_t> FindRegister(std::string_view name) const override;
  [[nodiscard]] std::uint32_t ReadRegister(std::uint32_t address) override;
  void WriteRegister(std::uint32_t address, std::uint32_t value) override;
  void PushWords(std::span<const std::uint32_t> words) override;
  void PopWords(std::span<std::uint32_t> words) override;
  void WriteMemory(std::uint32_t address, std::span<const std::uint8_t> bytes,
                   std::size_t elementSize) override;
  void ReadMemory(std::uint32_t address, std::span<std::uint8_t> bytes, std::size_t elementSize) override;
  void Sleep(std::uint32_t milliseconds) override;
  [[nodiscard]] std::uint64_t ElapsedNs() const override { return access->NowNs() - openedNs; }
  [[nodiscard]] Traffic Counted() const override { return access->Counted(); }
  [[nodiscard]] std::optional<std::uint32_t> WireHz() const override { return access->WireHz(); }
  void Cancel() noexcept override { access->Cancel(); }

 protected:
  void AwaitSent() noexcept { access->AwaitSent(); }

 private:
  [[nodiscard]] ApRegister Named(std::string_view name) const;
  // Throws std::runtime_error where there is no register.
  [[nodiscard]] ApRegister At(std::uint32_t address) const;
  std::uint32_t ReadFlags();
  std::uint32_t TakeFetched();
  // Runs accesses. After a chip has fallen silent, the next ones begin with a new connection.
  template <typename Accesses>
  auto Try(Accesses&& accesses);
  void LetGoOfReset() noexcept;
  // What was known of the chip holds no longer.
  void Forget();

  const std::unique_ptr<ApAccess> access;
  const AccessPorts ports;
  const ReadAhead readsAhead;
  const std::uint64_t openedNs;
  const ApRegister txData, rxData, rxFlags, resetControl;
  MemoryPort memory;
  bool isConnected = false;
  bool isLost = false;                       // connected, as far as the plug-in knows
  std::optional<ApAccess::Fetched> fetched;  // and not handed out yet
  bool flagsWereSeen = false;                // those that were fetched with it
};

}  // namespace host
