#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

// A file that is there as long as the object.
class TemporaryFile {
 public:
  explicit TemporaryFile(const std::vector<std::uint8_t>& content)
      : path(testing::TempDir() + "tovik-" + std::to_string(::getpid()) + ".bin") {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
  }
  ~TemporaryFile() { std::filesystem::remove(path); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  const std::string path;
};
