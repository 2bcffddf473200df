#pragma once

#include "host/probe/ChipPicture.h"

namespace host {

// What can be seen and kept of a chip that is simulated. A real chip has no such view.
class ChipView {
 public:
  virtual ~ChipView() = default;

  [[nodiscard]] virtual ChipPicture Picture() const = 0;
  // Writes the chip to its file when it differs from what the file holds; does nothing without a file. Throws
  // std::runtime_error when it cannot be written; the old file then stays as it was.
  virtual void Save() = 0;
  // Throws InputError when the chip could not be saved, before work is done whose result would be lost.
  virtual void RequireSavable() const = 0;
  // No file held the chip: it began blank.
  [[nodiscard]] virtual bool IsNew() const = 0;
};

}  // namespace host
