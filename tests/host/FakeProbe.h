#pragma once

#include <fmt/format.h>

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/probe/DebugProbe.h"

namespace host {

// A probe over nothing: one register, a line in `log` for each thing it is asked, and a failure on request.
class FakeProbe : public DebugProbe {
 public:
  static constexpr std::uint32_t kStatusAddress = 0x10008;

  std::vector<std::string> log;
  std::string failure;  // thrown by the next operation when not empty
  std::vector<std::uint32_t> wordsToPop;
  std::uint64_t elapsedNs = 0;

  void Connect(Core core) override { Note(fmt::format("connect {}", CoreName(core))); }
  void Disconnect(Core core) override { Note(fmt::format("disconnect {}", CoreName(core))); }
  void PinReset() override { Note("reset"); }
  std::optional<std::uint32_t> FindRegister(std::string_view name) const override {
    if (name == "CFGAP_DEVICESTATUS") return kStatusAddress;
    return std::nullopt;
  }
  std::uint32_t ReadRegister(std::uint32_t address) override {
    Note(fmt::format("read {:x}", address));
    return 0x2005;
  }
  void WriteRegister(std::uint32_t address, std::uint32_t value) override {
    Note(fmt::format("write {:x} {:x}", address, value));
  }
  void PushWords(std::span<const std::uint32_t> words) override {
    Note(fmt::format("push {:x}", fmt::join(words, " ")));
  }
  void PopWords(std::span<std::uint32_t> words) override {
    Note(fmt::format("pop {}", words.size()));
    for (std::size_t i = 0; i < words.size(); ++i) words[i] = wordsToPop.at(i);
  }
  void WriteMemory(std::uint32_t address, std::span<const std::uint8_t> bytes, std::size_t) override {
    Note(fmt::format("write memory {:x}: {:02x}", address, fmt::join(bytes, " ")));
  }
  void ReadMemory(std::uint32_t address, std::span<std::uint8_t> bytes, std::size_t) override {
    Note(fmt::format("read memory {:x}: {}", address, bytes.size()));
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(address + i);
  }
  void Sleep(std::uint32_t milliseconds) override { Note(fmt::format("sleep {}", milliseconds)); }
  std::uint64_t ElapsedNs() const override { return elapsedNs; }

 private:
  void Note(std::string line) {
    log.push_back(std::move(line));
    if (!failure.empty()) throw std::runtime_error(std::exchange(failure, ""));
  }
};

}  // namespace host
