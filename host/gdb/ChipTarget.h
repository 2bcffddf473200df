#pragma once

#include <optional>
#include <string>

#include "host/gdb/Target.h"
#include "host/load/Session.h"
#include "host/plan/Preflight.h"

namespace host::gdb {

// The chip of a session. A load is one as any other: plan, look before it, plug-in, record; told on the
// terminal, and the chip kept afterwards.
class ChipTarget final : public Target {
 public:
  ChipTarget(Session& itsSession, Terminal& serverTerminal) : session(itsSession), terminal(serverTerminal) {}

  [[nodiscard]] const MemoryMap& Map() const override { return session.device.map; }
  void Load(std::vector<ImageSegment> segments) override;
  void Read(std::uint32_t address, std::span<std::uint8_t> bytes) override;
  [[nodiscard]] bool IsOpen() override;
  void WriteRam(std::uint32_t address, std::span<const std::uint8_t> bytes) override;
  void Monitor(std::string_view command, const Console& console) override;

  // The last load that was begun, or its refusal; what became of the last one that was begun.
  [[nodiscard]] const std::string& Report() const { return report; }
  [[nodiscard]] const std::optional<LoadRecord>& LastLoad() const { return record; }

  // For the monitor's commands.

  // Compares the chip with what was loaded last; returns the verdict. Throws what is different.
  std::string Verify();
  // The connection to the core ends when a plug-in works on the chip or the chip is reset.
  void ForgetConnection() { isConnected = false; }
  // Throws std::runtime_error.
  void Keep();
  bool loadsOnlyDifferent = false;

 private:
  // What is found to be wrong before anything is done; throws InputError.
  Preflight Inspected(const LoadPlan& plan);
  bool IsAlreadyThere(const LoadPlan& plan);
  void Carry(const LoadPlan& plan, LoadRecord& load);
  void Connect();
  [[nodiscard]] std::uint32_t PlainAddress(std::uint32_t address) const;

  Session& session;
  Terminal& terminal;
  std::string report = "nothing has been loaded yet\n";
  std::optional<LoadRecord> record;
  std::optional<LoadPlan> lastPlan;
  bool isConnected = false;
};

}  // namespace host::gdb
