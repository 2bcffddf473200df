#include "WatchedServices.h"

#include <cstring>
#include <type_traits>
#include <utility>

namespace {

constexpr unsigned long long kTxCmdStart = 2;

std::string SubjectOf(const char* name) {
  return name;
}
template <typename Other>
std::string SubjectOf(Other) {
  return {};
}

}  // namespace

// One entry of the table: notes the call and passes it on.
template <HostFunction function, typename... Arguments,
          const char* (*HostFunctionTable::*slot)(HostObject*, Arguments...)>
struct WatchedServices::Entry<function, slot> {
  const static char* Call(HostObject* object, Arguments... arguments) {
    auto& self = static_cast<WatchedServices&>(*object);
    std::string subject;
    if constexpr (sizeof...(Arguments) > 0)
      subject = [](auto first, auto...) { return SubjectOf(first); }(arguments...);
    self.Before(function, subject);
    if constexpr (function == HostFunction::WriteReg)
      [&](Debugger::Address, unsigned long long value) {
        self.startFlag = value == kTxCmdStart;
      }(arguments...);
    if constexpr (function == HostFunction::WriteMemory) {
      [&](const void* elements, auto...) {
        if (self.startFlag && self.CurrentCore() == host::Core::SecureAp)
          self.commands.push_back(*static_cast<const std::uint8_t*>(elements));
      }(arguments...);
    }
    const char* const answer = (self.plainTable->*slot)(object, arguments...);
    self.After(self.CallCount() == self.callToFail);
    return answer;
  }
};

const HostFunctionTable WatchedServices::s_watchedTable = [] {
  using F = HostFunction;
  using T = HostFunctionTable;
  HostFunctionTable table{};
  table.getValueOfProperty = Entry<F::GetValueOfProperty, &T::getValueOfProperty>::Call;
  table.setValueOfProperty = Entry<F::SetValueOfProperty, &T::setValueOfProperty>::Call;
  table.resetTarget = Entry<F::ResetTarget, &T::resetTarget>::Call;
  table.readMemory = Entry<F::ReadMemory, &T::readMemory>::Call;
  table.writeMemory = Entry<F::WriteMemory, &T::writeMemory>::Call;
  table.lookupReg = Entry<F::LookupReg, &T::lookupReg>::Call;
  table.readReg = Entry<F::ReadReg, &T::readReg>::Call;
  table.writeReg = Entry<F::WriteReg, &T::writeReg>::Call;
  table.reportError = Entry<F::ReportError, &T::reportError>::Call;
  table.reportInfo = Entry<F::ReportInfo, &T::reportInfo>::Call;
  table.sleep = Entry<F::Sleep, &T::sleep>::Call;
  table.setCore = Entry<F::SetCore, &T::setCore>::Call;
  table.disconnect = Entry<F::Disconnect, &T::disconnect>::Call;
  table.isConnected = Entry<F::IsConnected, &T::isConnected>::Call;
  table.setCoreById = Entry<F::SetCoreById, &T::setCoreById>::Call;
  table.connect = Entry<F::Connect, &T::connect>::Call;
  table.reConnect = Entry<F::ReConnect, &T::reConnect>::Call;
  return table;  // the reserved positions stay null: calling one is a crash
}();

WatchedServices::WatchedServices(host::DebugProbe& debugProbe, host::PropertyStore& propertyStore)
    : HostServices(debugProbe, propertyStore), plainTable(std::exchange(table, &s_watchedTable)) {}

void WatchedServices::FailCall(std::uint64_t nth, const std::string& text) {
  failedCall.reset();
  callToFail = CallCount() + nth;
  Fail({.call = callToFail, .text = text});
}

std::string WatchedServices::BrokenPromise() {
  if (owesDebugPort) brokenPromise += "returned without making CS_DAP_0 current after a transfer\n";
  owesDebugPort = false;
  return std::exchange(brokenPromise, {});
}

void WatchedServices::Before(HostFunction function, std::string subject) {
  const bool givesBack = function == HostFunction::SetCoreById && subject == "CS_DAP_0";
  if (owesDebugPort && !givesBack)
    brokenPromise += "call " + std::to_string(CallCount() + 1) + " came on SEC_AP after a transfer\n";
  owesDebugPort = false;
  const bool isRegisterAccess = function == HostFunction::ReadReg || function == HostFunction::WriteReg;
  if (isRegisterAccess && CurrentCore() != host::Core::DebugPort)
    brokenPromise += "call " + std::to_string(CallCount() + 1) + " is a register access off CS_DAP_0\n";
  calls.push_back({function, std::move(subject), CurrentCore()});
}

void WatchedServices::After(bool failed) {
  if (failed) failedCall = calls.back();
  owesDebugPort = IsTransferStep(failed);
}

// Whether the plug-in is past the choice of SEC_AP in a transfer and, by what has just happened, done with
// it.
bool WatchedServices::IsTransferStep(bool failed) const {
  const WatchedCall& last = calls.back();
  if (last.core != host::Core::SecureAp) return false;
  if (last.function == HostFunction::ReadMemory || last.function == HostFunction::WriteMemory) return true;
  if (!failed || (last.function != HostFunction::IsConnected && last.function != HostFunction::Connect))
    return false;
  // On its way into SACI the plug-in looks at the connection of each core in turn, which is no transfer: the
  // choice of SEC_AP then comes right after such a look at the Cortex.
  const std::size_t size = calls.size();
  return size < 3 || calls[size - 3].function != HostFunction::IsConnected;
}
