#include "host/load/TimeSpent.h"

#include <algorithm>

#include "host/probe/DebugProbe.h"

namespace host {

namespace {

Spending SpendingOf(const HostCall& call, bool isAnswerDue) {
  if (call.function == "WriteMemory" || call.function == "ReadMemory")
    return call.core == CoreName(Core::SecureAp) ? Spending::Words : Spending::Memory;
  if (call.function == "ReadReg" || call.function == "WriteReg") return Spending::Registers;
  if (call.function == "Connect" || call.function == "ReConnect" || call.function == "Disconnect" ||
      call.function == "ResetTarget")
    return Spending::Connections;
  if (call.function == "Sleep") return isAnswerDue ? Spending::AnswerSleeps : Spending::OtherSleeps;
  return Spending::OtherCalls;
}

}  // namespace

void TimeSpent::Add(const HostCall& call, std::uint64_t ns, bool isAnswerDue) {
  Effort& effort = efforts[static_cast<std::size_t>(SpendingOf(call, isAnswerDue))];
  effort.ns += ns;
  ++effort.calls;
  if (!call.error) effort.bytes += call.data.size();
  effort.roundTrips += call.roundTrips;
  if (call.function == "ReadReg" && call.roundTrips == 1 && !call.error)
    shortestNs = std::min(shortestNs.value_or(ns), ns);
}

void TimeSpent::AddOutside(std::uint64_t ns) {
  efforts[static_cast<std::size_t>(Spending::Outside)].ns += ns;
}

std::vector<TimeShare> TimeSpent::Shares() const {
  std::vector<TimeShare> shares;
  TimeShare waited{.spending = Spending::RoundTrips};
  for (std::size_t i = 0; i < kSpendingCount; ++i) {
    const Effort& effort = efforts[i];
    // A hostile count may wrap; no share becomes more than there was to take from.
    const std::uint64_t waitedNs = std::min(effort.roundTrips * RoundTripNs(), effort.ns);
    waited.ns += waitedNs;
    waited.count += effort.roundTrips;
    if (effort.ns != waitedNs)
      shares.push_back({static_cast<Spending>(i), effort.ns - waitedNs, effort.calls, effort.bytes});
  }
  if (waited.ns != 0) shares.push_back(waited);
  return shares;
}

}  // namespace host
