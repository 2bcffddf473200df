#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

namespace host {

// Sees when image files are written anew: in place, replaced by another of that name, or deleted and made
// again.
class ImageWatch {
 public:
  // Remembers the files as they are now: made before they are read, it misses nothing that is written later.
  explicit ImageWatch(std::vector<std::filesystem::path> itsFiles);

  // Waits until one of them is another than it was, all are there, and all have been left alone for a moment:
  // whoever writes them is done, as far as one can see.
  void Wait() const;

 private:
  struct Stamp {
    std::uint64_t file = 0;  // which one has the name
    std::int64_t size = 0;
    std::int64_t seconds = 0;  // of the last change
    std::int64_t nanoseconds = 0;
    bool operator==(const Stamp&) const = default;
  };
  // In the files' order; nothing for one that is not there.
  using Stamps = std::vector<std::optional<Stamp>>;

  [[nodiscard]] Stamps Look() const;

  std::vector<std::filesystem::path> files;
  Stamps before;
};

}  // namespace host
