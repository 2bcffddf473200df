#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "ChipDescription.h"
#include "ChipState.h"

namespace simulator {

// The file that keeps a chip between runs, held: while this object lives, opening the file anywhere else
// fails. A process that dies lets go of it. A symbolic link is followed, not replaced. Everything here throws
// std::runtime_error whose text begins with "Chip file PATH: " and leaves the file as it was.
class ChipFile {
 public:
  static ChipFile OpenExisting(const std::filesystem::path& path);
  // A file that is not there is made, with the mode that the umask leaves, and is gone again when nothing is
  // saved. It is empty until then: an empty file holds no chip yet.
  static ChipFile OpenOrCreate(const std::filesystem::path& path);
  // Of the device whose chip the file holds. Needs no hold: a chip file is never seen half written.
  static std::string DeviceName(const std::filesystem::path& path);

  ChipFile(ChipFile&& other) noexcept
      : path(std::move(other.path)),
        target(std::move(other.target)),
        descriptor(std::exchange(other.descriptor, -1)),
        created(other.created) {}
  ChipFile& operator=(ChipFile&&) = delete;
  ~ChipFile();

  [[nodiscard]] bool IsEmpty() const;
  // Fails when a chip of this description could not be saved: directory or file not writable, no room, an
  // owner that could not be kept. To be asked before work is done whose result would be lost.
  void RequireWritable(const ChipDescription& description) const;
  [[nodiscard]] ChipState Load(const ChipDescription& description) const;
  // Replaces the file in one step: it holds the old chip or the new one, never a part of either, whenever the
  // process or the machine stops. Mode and owner stay.
  void Save(const ChipDescription& description, const ChipState& state);

 private:
  ChipFile(const std::filesystem::path& name, int flags);

  std::filesystem::path path;    // as given, for messages
  std::filesystem::path target;  // what it names, links followed
  int descriptor = -1;           // of the file, locked
  bool created = false;          // by this object, to be removed if it stays empty
};

}  // namespace simulator
