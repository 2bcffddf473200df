#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "host/device/FlashProperties.h"
#include "host/probe/ChipPicture.h"
#include "host/probe/DebugProbe.h"
#include "simulator/Chip.h"
#include "simulator/DebugPorts.h"

namespace host {

struct SimulatedChipOptions {
  std::optional<std::filesystem::path>
      file;                               // where the chip is kept; a file that is not there is a new chip
  std::string timing = "hs";              // which probe is modelled, by name
  std::vector<std::string> faults;        // in the simulator's fault grammar
  std::optional<std::uint8_t> lifeCycle;  // in place of the one that the chip has
};

// A probe with a simulated chip at its end. Its clock is virtual: it counts what the same accesses would take
// on a board.
class SimulatedProbe final : public DebugProbe {
 public:
  // Powers the chip up. Throws InputError for an unusable chip file, probe name or fault; touches no file.
  SimulatedProbe(const DeviceDescription& device, const SimulatedChipOptions& options);

  // Name of the device that a chip file is of. Throws InputError when it is no sound chip file.
  static std::string DeviceOfFile(const std::filesystem::path& chipFile);

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

  // The chip itself, for those who put something into it or take its power away.
  [[nodiscard]] simulator::Chip& Chip() { return *chip; }
  [[nodiscard]] ChipPicture Picture() const;
  [[nodiscard]] std::uint64_t RoundTrips() const { return ports->Counted().roundTrips; }
  // Whether the chip lets a debugger reach its memory.
  [[nodiscard]] bool IsDebuggingOpen();

  // Writes the chip to its file when it differs from what the file holds. Does nothing without a file. Throws
  // std::runtime_error when it cannot be written; the old file then stays as it was.
  void Save();

 private:
  std::optional<std::filesystem::path> file;
  std::unique_ptr<simulator::Chip> chip;
  std::unique_ptr<simulator::DebugPorts> ports;
  std::optional<simulator::ChipState> saved;  // what the file holds; nothing when there is none yet
};

}  // namespace host
