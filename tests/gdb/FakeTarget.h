#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "host/gdb/Target.h"

// A chip of a few sectors that remembers what it was asked to do, and a terminal that remembers what it was
// told. RAM can be written, and everything be read, while the chip is open; a load fails when it is told to.
class FakeTarget final : public host::gdb::Target, public host::gdb::Terminal {
 public:
  FakeTarget() {
    map.main = {0, 0x4000};
    map.sectorSize = 0x800;
    map.ccfg = {0x4C00'0000, 0x800};
    map.otp = {0x4C00'0800, 0x400};
    map.ram = {0x2000'0000, 0x1000};
    map.aliasMask = 0x1000'0000;
  }

  const host::MemoryMap& Map() const override { return map; }
  void Load(std::vector<host::ImageSegment> segments) override {
    loads.push_back(std::move(segments));
    if (failsLoads) throw std::runtime_error("Error $1 #2");
  }
  void Read(std::uint32_t address, std::span<std::uint8_t> bytes) override {
    if (!isOpen) throw std::runtime_error("closed");
    if (address + std::uint64_t{bytes.size()} > map.main.size) throw std::runtime_error("bus error");
    for (std::size_t i = 0; i < bytes.size(); ++i)
      bytes[i] = address + i < 9 ? static_cast<std::uint8_t>("123456789"[address + i]) : 0xFF;
  }
  bool IsOpen() override { return isOpen; }
  void WriteRam(std::uint32_t address, std::span<const std::uint8_t> bytes) override {
    ramWrites.push_back({address, {bytes.begin(), bytes.end()}});
  }
  void Monitor(std::string_view command, const host::gdb::Console& console) override {
    console(command);
    if (command == "fail") throw std::runtime_error("failed");
  }

  void Say(std::string_view) override {}
  void Complain(std::string_view text) override { complaints.emplace_back(text); }
  void Explain(std::string_view) override {}
  void Follow(const host::LoadEvent&) override {}

  host::MemoryMap map;
  bool isOpen = true;
  bool failsLoads = false;
  std::vector<std::vector<host::ImageSegment>> loads;
  std::vector<host::ImageSegment> ramWrites;
  std::vector<std::string> complaints;
};
