#include "ProbeClient.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace simulator {
namespace {

std::string WordHex(std::uint32_t word) {
  const std::uint8_t bytes[] = {static_cast<std::uint8_t>(word), static_cast<std::uint8_t>(word >> 8),
                                static_cast<std::uint8_t>(word >> 16), static_cast<std::uint8_t>(word >> 24)};
  return ToHex(bytes);
}

// DAP_Transfer of two: SELECT, and an access to the register.
std::string Access(std::uint32_t select, unsigned kind) {
  const auto request = static_cast<std::uint8_t>(kind | (select & 0xC));
  return "05 00 02 08 " + WordHex(select & 0xFF00'00F0) + ' ' + ToHex({&request, 1});
}

}  // namespace

std::vector<std::uint8_t> FromHex(const std::string& text) {
  std::istringstream digits(text);
  std::vector<std::uint8_t> bytes;
  for (unsigned byte = 0; digits >> std::hex >> byte;) bytes.push_back(static_cast<std::uint8_t>(byte));
  return bytes;
}

std::string ToHex(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (const std::uint8_t byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02X ", byte);
    text += digits;
  }
  return text.substr(0, text.empty() ? 0 : text.size() - 1);
}

std::string ProbeClient::Ask(const std::string& packet) {
  transport.Send(FromHex(packet));
  return ToHex(transport.Receive(10 * kSecond).value_or(std::vector<std::uint8_t>()));
}

std::string ProbeClient::Play(const std::string& script) {
  std::istringstream lines(script);
  for (std::string line; std::getline(lines, line);) {
    const auto arrow = line.find('>');
    if (arrow == std::string::npos) continue;
    const std::string answer = Ask(line.substr(0, arrow));
    auto expected = FromHex(line.substr(arrow + 1));
    if (transport.Speed().sendsWholeReports) expected.resize(transport.Speed().packetSize);
    if (answer != ToHex(expected)) return line + " but " + answer;
  }
  return "";
}

std::string ProbeClient::Connect() {
  return Play(R"(
    02 01 > 02 01                          # serial wire
    11 80 96 98 00 > 11 00                 # 10 MHz
    04 00 FF FF 00 00 > 04 00              # WAIT is tried again 65535 times
    13 00 > 13 00                          # one clock of turnaround
    12 38 FF FF FF FF FF FF FF > 12 00     # a line reset
    12 10 9E E7 > 12 00                    # JTAG to serial wire
    12 40 FF FF FF FF FF FF FF 00 > 12 00  # a line reset and idle clocks
    05 00 01 02 > 05 01 01 FF 1F 41 05     # DPIDR
    05 00 03 00 1E 00 00 00 08 00 00 00 00 04 00 00 00 50 > 05 03 01  # ABORT, SELECT, power
    09 40 00 > 09 00                       # while it comes up
    05 00 01 06 > 05 01 01 40 00 00 F0     # CTRL/STAT
  )");
}

std::uint32_t ProbeClient::Read(std::uint32_t select) {
  const auto answer = FromHex(Ask(Access(select, 3)));
  if (answer.size() < 7 || answer[1] != 2 || answer[2] != 1) return 0xDEAD'DEAD;
  std::uint32_t word = 0;
  for (unsigned i = 0; i < 4; ++i) word |= std::uint32_t{answer[3 + i]} << (8 * i);
  return word;
}

void ProbeClient::Write(std::uint32_t select, std::uint32_t value) {
  Ask(Access(select, 1) + ' ' + WordHex(value));
}

bool ProbeClient::WriteBlock(std::uint8_t request, std::span<const std::uint32_t> words) {
  const std::size_t fits = (transport.Speed().packetSize - 5) / 4;
  std::size_t inFlight = 0;
  for (bool good = true;;) {
    for (; !words.empty() && inFlight < transport.Speed().packetCount; ++inFlight) {
      const auto some = words.first(std::min(fits, words.size()));
      std::vector<std::uint8_t> packet = {0x06, 0, static_cast<std::uint8_t>(some.size()), 0, request};
      for (const std::uint32_t word : some)
        for (unsigned i = 0; i < 4; ++i) packet.push_back(static_cast<std::uint8_t>(word >> (8 * i)));
      transport.Send(packet);
      words = words.subspan(some.size());
    }
    if (inFlight-- == 0) return good;
    const auto answer = transport.Receive(kSecond);
    good = good && answer && answer->size() >= 4 && (*answer)[3] == 1;
  }
}

}  // namespace simulator
