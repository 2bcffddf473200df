#pragma once

#include <memory>
#include <optional>

#include "host/probe/ChipView.h"
#include "host/probe/OpenProbe.h"
#include "simulator/Chip.h"
#include "simulator/ChipFile.h"
#include "simulator/probe/SwdTarget.h"

namespace host {

// A simulated chip with power, two wires and a reset pin, and the file that it is kept in.
class SimulatedBoard : public ChipView {
 public:
  // Throws InputError for an unusable chip file or fault.
  SimulatedBoard(const DeviceDescription& device, const SimulatedChipOptions& options);

  [[nodiscard]] ChipPicture Picture() const override;
  void Save() override;
  void RequireSavable() const override;
  [[nodiscard]] bool IsNew() const override { return isNew; }

  // The chip itself, for those who put something into it or take its power away.
  [[nodiscard]] simulator::Chip& Chip() { return *chip; }
  [[nodiscard]] simulator::SwdTarget& Target() { return *target; }

 private:
  std::optional<simulator::ChipFile> file;
  bool isNew = true;
  std::unique_ptr<simulator::Chip> chip;
  std::unique_ptr<simulator::SwdTarget> target;
  std::optional<simulator::ChipState> saved;  // what the file holds; nothing when there is none yet
};

}  // namespace host
