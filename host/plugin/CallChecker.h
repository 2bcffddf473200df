#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/plugin/HostCall.h"
#include "host/plugin/WireChecker.h"

namespace host {

// Holds a plug-in to what it owes its host and the wire, whatever it is made to do. Knows a plug-in by its
// calls alone, and what the contract (include/) and docs/wire-format.md ask of every one:
//   connect first          no access through a core that is not connected
//   debug port             registers are reached through CS_DAP_0 only
//   data register          on SEC_AP there are words at address 0 of page 1, and nothing else
//   give back              after a transfer through SEC_AP the next call makes CS_DAP_0 current
//   stop                   after a call that failed comes nothing more but that
//   pass on                the operation fails, with the text of the call that failed
//   say why                no failure, error or message without a text
//   32 bits                no wider address or register value
//   something to move      no transfer of nothing
//   reserved               no call of a reserved function
// and those of WireChecker.
class CallChecker final : public HostCallObserver {
 public:
  explicit CallChecker(const WireSizes& sizes) : wire(sizes, findings) {}
  CallChecker(const CallChecker&) = delete;
  CallChecker& operator=(const CallChecker&) = delete;

  // In the order they were made; empty for a plug-in that keeps the rules.
  [[nodiscard]] const std::vector<CallFinding>& Findings() const { return findings; }

  void Saw(const HostCall& call, std::uint64_t elapsedNs) override;
  void Begins(const PluginCall& call, std::uint64_t elapsedNs) override;
  void Ends(const PluginCall& call, std::uint64_t elapsedNs) override;

 private:
  void CheckOrder(const HostCall& call);
  void CheckAccess(const HostCall& call);
  void CheckArguments(const HostCall& call);
  void NoteConnections(const HostCall& call);
  void NoteFailure(const HostCall& call);
  void Find(std::string_view rule, std::string what);

  std::vector<CallFinding> findings;
  WireChecker wire;
  std::uint64_t number = 0;  // of the last call
  std::set<std::string, std::less<>> connected{"CS_DAP_0"};
  bool owesDebugPort = false;          // a transfer has ended on SEC_AP
  std::optional<std::string> failure;  // the text of the operation's first failed call
  bool wentOn = false;                 // past that, which is told once
};

}  // namespace host
