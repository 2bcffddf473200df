#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

// A run of the built program, as a shell sees it.
struct ProgramRun {
  int exitCode = -1;
  std::string out;
  std::string err;
};

using Bytes = std::vector<std::uint8_t>;

// A folder of its own for one test, gone with it.
class TestFolder {
 public:
  TestFolder();
  ~TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;

  [[nodiscard]] std::string Path(const std::string& name) const { return (folder / name).string(); }
  // Writes a file and returns its path.
  std::string Write(const std::string& name, const Bytes& bytes) const;
  std::string Write(const std::string& name, const std::string& text) const;
  [[nodiscard]] Bytes Read(const std::string& name) const;
  [[nodiscard]] bool Has(const std::string& name) const { return std::filesystem::exists(folder / name); }

  // Runs tovik-flash with these arguments.
  [[nodiscard]] ProgramRun Run(const std::vector<std::string>& arguments) const;

 private:
  std::filesystem::path folder;
};
