#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "simulator/probe/ProbeTransport.h"

namespace simulator {

// "05 00 01" and back.
std::vector<std::uint8_t> FromHex(const std::string& text);
std::string ToHex(std::span<const std::uint8_t> bytes);

// Drives a simulated probe with literal packets, as a debugger would.
class ProbeClient {
 public:
  explicit ProbeClient(SwdTarget& target, const ProbeSpeed& speed = {}) : transport(target, speed) {}

  // One packet and its answer; no answer within ten seconds is "".
  std::string Ask(const std::string& packet);
  // Many, one a line: packet > answer, and behind # a remark. The first exchange that went another way and
  // its answer, or "".
  std::string Play(const std::string& script);
  // From any state to access ports that can be reached. What went wrong, or "".
  std::string Connect();
  // The register in `select`'s bits 7-0 of the port in its bits 31-24: one packet. 0xDEADDEAD when it failed.
  std::uint32_t Read(std::uint32_t select);
  void Write(std::uint32_t select, std::uint32_t value);
  // A block of words to the register that `request` names in the port selected last, with as many packets in
  // flight as the probe takes. False when an answer is missing or not Ok.
  bool WriteBlock(std::uint8_t request, std::span<const std::uint32_t> words);

  ProbeTransport transport;
};

}  // namespace simulator
