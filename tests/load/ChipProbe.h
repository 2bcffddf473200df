#pragma once

#include <memory>

#include "DebugProbe.h"
#include "FlashProperties.h"
#include "simulator/Chip.h"
#include "simulator/DebugPorts.h"

// A probe whose chip can be reached behind it: to put contents in, to cut its power, to ask it for faults.
class ChipProbe final : public host::DebugProbe {
 public:
  explicit ChipProbe(const host::DeviceDescription& device);

  simulator::Chip& Chip() { return *chip; }
  // Whether the chip lets a debugger reach its memory.
  [[nodiscard]] bool IsDebuggingOpen();

  void Connect(host::Core core) override;
  void Disconnect(host::Core) override {}
  void PinReset() override { ports.PinReset(); }
  [[nodiscard]] std::optional<std::uint32_t> FindRegister(std::string_view name) const override;
  [[nodiscard]] std::uint32_t ReadRegister(std::uint32_t address) override {
    return ports.ReadRegister(address);
  }
  void WriteRegister(std::uint32_t address, std::uint32_t value) override {
    ports.WriteRegister(address, value);
  }
  void PushWords(std::span<const std::uint32_t> words) override { ports.WriteTxWords(words); }
  void PopWords(std::span<std::uint32_t> words) override { ports.ReadRxWords(words); }
  void WriteMemory(std::uint32_t address, std::span<const std::uint8_t> bytes) override {
    ports.WriteMemory(address, bytes);
  }
  void ReadMemory(std::uint32_t address, std::span<std::uint8_t> bytes) override {
    ports.ReadMemory(address, bytes);
  }
  void Sleep(std::uint32_t milliseconds) override { ports.Sleep(milliseconds); }
  [[nodiscard]] std::uint64_t ElapsedNs() const override { return chip->Clock().Now(); }

 private:
  std::unique_ptr<simulator::Chip> chip;
  simulator::DebugPorts ports;
};
