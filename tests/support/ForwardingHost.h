#pragma once

#include <string_view>

#include "IFlashProgrammerUtility2.h"

// One call of the host's table, as the hooks see it.
struct SeenCall {
  std::string_view function;  // as the members below are named
  std::string_view subject;   // the property, register, core or message that it names
};

// A host that passes every call on to the next one and, where there is none, answers success. Fakes override
// what they answer themselves; those that only look on, or fail single calls, override the two hooks. A call
// of a reserved position stops the process.
class ForwardingHost : public HostObject {
 public:
  // `nextHost` is not owned and outlives this one.
  explicit ForwardingHost(HostObject* nextHost = nullptr);
  virtual ~ForwardingHost() = default;
  ForwardingHost(const ForwardingHost&) = delete;
  ForwardingHost& operator=(const ForwardingHost&) = delete;

  [[nodiscard]] IFlashProgrammerUtility2 Utility() { return IFlashProgrammerUtility2(this); }

 protected:
  using Table = HostFunctionTable;

  // A text keeps the call from being made and is its answer; a property that is looked up is not found then.
  virtual const char* Before(const SeenCall&) { return nullptr; }
  virtual void After(const SeenCall&, const char* /*error*/) {}

  virtual const char* GetProperty(const char* name) { return Pass<&Table::getValueOfProperty>(name); }
  virtual const char* SetProperty(const char* name, const char* value) {
    return Pass<&Table::setValueOfProperty>(name, value);
  }
  virtual const char* ResetTarget(int kind) { return Pass<&Table::resetTarget>(kind); }
  virtual const char* ReadMemory(void* elements, std::size_t count, Debugger::Address address, int page,
                                 std::size_t elementSize) {
    return Pass<&Table::readMemory>(elements, count, address, page, elementSize);
  }
  virtual const char* WriteMemory(const void* elements, std::size_t count, Debugger::Address address,
                                  int page, std::size_t elementSize) {
    return Pass<&Table::writeMemory>(elements, count, address, page, elementSize);
  }
  virtual const char* LookupReg(const char* name, Debugger::Address* address) {
    return Pass<&Table::lookupReg>(name, address);
  }
  virtual const char* ReadReg(Debugger::Address address, unsigned long long* value) {
    return Pass<&Table::readReg>(address, value);
  }
  virtual const char* WriteReg(Debugger::Address address, unsigned long long value) {
    return Pass<&Table::writeReg>(address, value);
  }
  virtual const char* ReportError(const char* message) { return Pass<&Table::reportError>(message); }
  virtual const char* ReportInfo(const char* message) { return Pass<&Table::reportInfo>(message); }
  virtual const char* Sleep(unsigned milliseconds) { return Pass<&Table::sleep>(milliseconds); }
  virtual const char* SetCore(const char* name) { return Pass<&Table::setCore>(name); }
  virtual const char* SetCoreById(const char* id) { return Pass<&Table::setCoreById>(id); }
  virtual const char* Disconnect(bool option) { return Pass<&Table::disconnect>(option); }
  virtual const char* IsConnected(bool* connected) { return Pass<&Table::isConnected>(connected); }
  virtual const char* Connect(bool option) { return Pass<&Table::connect>(option); }
  virtual const char* ReConnect() { return Pass<&Table::reConnect>(); }

 private:
  struct Entries;

  template <auto slot, typename... Arguments>
  const char* Pass(Arguments... arguments) {
    return next == nullptr ? nullptr : (next->table->*slot)(next, arguments...);
  }

  HostObject* next;
};
