#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "host/device/DeviceDescription.h"
#include "host/probe/ChipView.h"
#include "host/probe/OpenProbe.h"
#include "simulator/Chip.h"
#include "simulator/ChipFile.h"
#include "simulator/DebugPorts.h"

namespace host {

// A probe with a simulated chip at its end. Its clock is virtual: it counts what the same accesses would take
// on a board.
class SimulatedProbe final : public DebugProbe, public ChipView {
 public:
  // `timing` names the kind of probe that is modelled. Throws as OpenProbe does.
  SimulatedProbe(const DeviceDescription& device, const SimulatedChipOptions& options,
                 std::string_view timing = "hs");

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
  [[nodiscard]] std::uint64_t ElapsedNs() const override;
  [[nodiscard]] std::uint64_t RoundTrips() const override { return ports->Counted().roundTrips; }
  [[nodiscard]] ChipView* View() override { return this; }

  [[nodiscard]] ChipPicture Picture() const override;
  void Save() override;
  void RequireSavable() const override;
  [[nodiscard]] bool IsNew() const override { return isNew; }

  // The chip itself, for those who put something into it or take its power away.
  [[nodiscard]] simulator::Chip& Chip() { return *chip; }

 private:
  // Waits until as much real time has passed as modelled time, where that is asked for.
  void KeepPace() const;

  std::optional<simulator::ChipFile> file;
  bool isNew = true;
  std::optional<std::chrono::steady_clock::time_point> realStart;  // of the modelled time's 0
  std::unique_ptr<simulator::Chip> chip;
  std::unique_ptr<simulator::DebugPorts> ports;
  std::optional<simulator::ChipState> saved;  // what the file holds; nothing when there is none yet
};

}  // namespace host
