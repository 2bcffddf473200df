#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host::cli {

// Whether both paths lead to one file, also one that is not there yet.
bool IsSameFile(const std::filesystem::path& left, const std::filesystem::path& right);

// The files that a verb reads and writes, so that no output can be an input, by whatever name.
class Files {
 public:
  // `role` leads the path in an error: "image app.elf". An empty path is no file.
  void Reads(std::string role, const std::filesystem::path& path);
  void Writes(std::string role, const std::filesystem::path& path);

  // Throws InputError when an output is an input or another output. Touches nothing.
  void RequireDistinct() const;

 private:
  struct Use {
    std::string role;
    std::filesystem::path path;
  };
  std::vector<Use> inputs;
  std::vector<Use> outputs;
};

// Throws InputError, led by `role`, where ReplaceFile could not write. Leaves nothing behind; an empty path
// is no file.
void RequireReplaceable(std::string_view role, const std::filesystem::path& path);

// Puts `bytes` in place of the file in one step: it holds the old bytes or the new ones, never a part. A path
// that is no regular file (a pipe, a terminal) is written to as it is. Throws std::runtime_error.
void ReplaceFile(const std::filesystem::path& path, std::string_view bytes);

}  // namespace host::cli
