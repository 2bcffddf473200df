#include "host/plugin/CallChecker.h"

#include <fmt/format.h>

#include <utility>

namespace host {

namespace {

constexpr std::string_view kDebugPort = "CS_DAP_0";
constexpr std::string_view kSecureAp = "SEC_AP";
constexpr int kDataPage = 1;
constexpr std::uint64_t kLargest32Bit = 0xFFFFFFFF;

bool IsOneOf(const HostCall& call, std::initializer_list<std::string_view> functions) {
  for (const std::string_view function : functions)
    if (call.function == function) return true;
  return false;
}

bool IsMemory(const HostCall& call) {
  return IsOneOf(call, {"ReadMemory", "WriteMemory"});
}
bool IsRegister(const HostCall& call) {
  return IsOneOf(call, {"ReadReg", "WriteReg"});
}
bool ChoosesDebugPort(const HostCall& call) {
  return IsOneOf(call, {"SetCore", "SetCoreById"}) && call.subject == kDebugPort;
}

}  // namespace

void CallChecker::Saw(const HostCall& call, std::uint64_t) {
  number = call.number;
  CheckOrder(call);
  CheckAccess(call);
  CheckArguments(call);
  NoteConnections(call);
  wire.Take(call);
  NoteFailure(call);
}

void CallChecker::Begins(const PluginCall& call, std::uint64_t) {
  owesDebugPort = false;
  failure.reset();
  wentOn = false;
  if (call.function == "CreateFlashDevice4") wire.BeginDevice();
}

void CallChecker::Ends(const PluginCall& call, std::uint64_t) {
  if (std::exchange(owesDebugPort, false))
    Find("give back", fmt::format("{} ended with SEC_AP current after a transfer", call.function));
  if (failure && call.error != *failure)
    Find("pass on", fmt::format("a call failed with \"{}\", {} {}", *failure, call.function,
                                call.error ? fmt::format("with \"{}\"", *call.error) : "succeeded"));
  if (call.error && call.error->empty() && !failure)
    Find("say why", fmt::format("{} failed without a text", call.function));
  if (call.error || failure) wire.LoseTrack();
  failure.reset();
}

void CallChecker::CheckOrder(const HostCall& call) {
  if (std::exchange(owesDebugPort, false) && !ChoosesDebugPort(call))
    Find("give back", fmt::format("{} came before CS_DAP_0 was made current again", call.function));
  if (failure && !ChoosesDebugPort(call) && !std::exchange(wentOn, true))
    Find("stop", fmt::format("{} came after \"{}\"", call.function, *failure));
  if (IsMemory(call) && call.core == kSecureAp) owesDebugPort = true;
}

void CallChecker::CheckAccess(const HostCall& call) {
  if (!IsMemory(call) && !IsRegister(call)) return;
  if (!connected.contains(call.core))
    Find("connect first", fmt::format("{} while {} is not connected", call.function, call.core));
  if (IsRegister(call) && call.core != kDebugPort)
    Find("debug port", fmt::format("{} through {}", call.function, call.core));
}

void CallChecker::CheckArguments(const HostCall& call) {
  const bool isData = call.address == 0U && call.page == kDataPage && call.elementSize == 4;
  if (IsMemory(call) && call.core == kSecureAp && !isData)
    Find("data register", fmt::format("{} of elements of {} bytes at 0x{:08x} of page {}", call.function,
                                      call.elementSize, call.address.value_or(0), call.page.value_or(0)));
  if (IsMemory(call) && !call.error && call.data.empty())
    Find("something to move", fmt::format("{} of no elements", call.function));
  if (call.address.value_or(0) > kLargest32Bit)
    Find("32 bits", fmt::format("{} at 0x{:x}", call.function, *call.address));
  if (call.function == "WriteReg" && call.value.value_or(0) > kLargest32Bit)
    Find("32 bits", fmt::format("{} of 0x{:x}", call.function, *call.value));
  if (IsOneOf(call, {"ReportError", "ReportInfo"}) && call.subject.value_or("").empty())
    Find("say why", fmt::format("{} without a text", call.function));
  if (call.function == "reserved function")
    Find("reserved", fmt::format("function {} of the table", call.value.value_or(0)));
}

// Where the host says how it stands with a core, its word counts. It may keep a connection that most lose.
void CallChecker::NoteConnections(const HostCall& call) {
  const bool isConnecting = IsOneOf(call, {"Connect", "ReConnect"});
  if (call.function == "IsConnected" && !call.error) {
    if (call.value.value_or(0) != 0)
      connected.emplace(call.core);
    else
      connected.erase(std::string(call.core));
  }
  if (isConnecting || call.function == "Disconnect") {
    if (call.core == kDebugPort) connected.clear();
    connected.erase(std::string(call.core));
  }
  if (isConnecting && !call.error) connected.emplace(call.core);
  if (call.function == "ResetTarget") connected.clear();
}

// A property look-up has no failure that the plug-in could see.
void CallChecker::NoteFailure(const HostCall& call) {
  if (!call.error || call.function == "GetValueOfProperty") return;
  wire.LoseTrack();
  if (!failure) failure = std::string(*call.error);
}

void CallChecker::Find(std::string_view rule, std::string what) {
  findings.push_back({rule, number, std::move(what)});
}

}  // namespace host
