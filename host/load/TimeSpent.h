#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/plugin/HostCall.h"

namespace host {

// What the time of a session was spent on.
enum class Spending {
  Words,         // moved between plug-in and ROM, and what the chip takes while they are moved
  Memory,        // read and written past the ROM
  Registers,     // of the access ports: flags, status, identity
  Connections,   // and the reset pin
  AnswerSleeps,  // of the plug-in, while a command has no answer yet
  OtherSleeps,
  OtherCalls,  // settings and messages
  Outside,     // of all calls into the host
  RoundTrips,  // to the probe, taken from all above
};
inline constexpr std::size_t kSpendingCount = 9;

struct TimeShare {
  Spending spending = Spending::Words;
  std::uint64_t ns = 0;
  std::uint64_t count = 0;  // of calls, or of round trips
  std::uint64_t bytes = 0;  // moved
};

// Adds up where the time of a session went. A call is given the time since the one before it ended: what the
// plug-in does in between is told apart nowhere.
//
// No call tells how much of it was waiting for the probe to answer. The shortest read of a register is nearly
// nothing else, so each round trip is taken to cost as much as that.
class TimeSpent {
 public:
  void Add(const HostCall& call, std::uint64_t ns, bool isAnswerDue);
  void AddOutside(std::uint64_t ns);

  // Those that took time; they sum up to all that was added.
  [[nodiscard]] std::vector<TimeShare> Shares() const;
  // What a round trip is taken to cost; nothing where none was counted.
  [[nodiscard]] std::uint64_t RoundTripNs() const { return shortestNs.value_or(0); }

 private:
  struct Effort {
    std::uint64_t ns = 0, calls = 0, bytes = 0, roundTrips = 0;
  };
  std::array<Effort, kSpendingCount> efforts{};
  std::optional<std::uint64_t> shortestNs;
};

}  // namespace host
