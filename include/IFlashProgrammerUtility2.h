#pragma once

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "DebuggerAddress.h"

// The host's services, as the plug-in calls them: a host object whose first word points to a table of
// functions. Every function takes the host object as its first argument and, except getValueOfProperty,
// returns null for success or an error text (an empty text is a failure too).

struct HostObject;

// Positions are fixed by the host. The reserved ones exist in the host's table and are never called here.
struct HostFunctionTable {
  using Reserved = void (*)();

  const char* (*getValueOfProperty)(HostObject*, const char* name);  // 0: null when there is no such property
  const char* (*setValueOfProperty)(HostObject*, const char* name, const char* value);  // 1
  Reserved reserved2to6[5];
  const char* (*resetTarget)(HostObject*, int kind);  // 7: kind 0 is the pin reset
  Reserved reserved8to9[2];
  // 10, 11: `count` elements of `elementSize` bytes; the element size is the access width on the target.
  const char* (*readMemory)(HostObject*, void* elements, std::size_t count, Debugger::Address address,
                            int page, std::size_t elementSize);
  const char* (*writeMemory)(HostObject*, const void* elements, std::size_t count, Debugger::Address address,
                             int page, std::size_t elementSize);
  const char* (*lookupReg)(HostObject*, const char* name, Debugger::Address* address);        // 12
  const char* (*readReg)(HostObject*, Debugger::Address address, unsigned long long* value);  // 13
  const char* (*writeReg)(HostObject*, Debugger::Address address, unsigned long long value);  // 14
  Reserved reserved15to18[4];
  const char* (*reportError)(HostObject*, const char* message);  // 19
  const char* (*reportInfo)(HostObject*, const char* message);   // 20
  Reserved reserved21;
  const char* (*sleep)(HostObject*, unsigned int milliseconds);  // 22
  Reserved reserved23to26[4];
  const char* (*setCore)(HostObject*, const char* name);  // 27
  Reserved reserved28to32[5];
  const char* (*disconnect)(HostObject*, bool);              // 33
  const char* (*isConnected)(HostObject*, bool* connected);  // 34: of the current core
  Reserved reserved35;
  const char* (*setCoreById)(HostObject*, const char* id);  // 36
  const char* (*connect)(HostObject*, bool);                // 37
  const char* (*reConnect)(HostObject*);                    // 38
};
static_assert(std::is_trivially_copyable_v<HostFunctionTable> &&
              std::is_standard_layout_v<HostFunctionTable>);
static_assert(sizeof(HostFunctionTable) == 39 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, getValueOfProperty) == 0 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, setValueOfProperty) == 1 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, resetTarget) == 7 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, readMemory) == 10 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, writeMemory) == 11 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, lookupReg) == 12 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, readReg) == 13 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, writeReg) == 14 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, reportError) == 19 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, reportInfo) == 20 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, sleep) == 22 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, setCore) == 27 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, disconnect) == 33 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, isConnected) == 34 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, setCoreById) == 36 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, connect) == 37 * sizeof(void*));
static_assert(offsetof(HostFunctionTable, reConnect) == 38 * sizeof(void*));

// A host's own object derives from this (or begins with the same word) and casts back in its functions.
struct HostObject {
  const HostFunctionTable* table;
};
static_assert(sizeof(HostObject) == sizeof(void*) && std::is_standard_layout_v<HostObject>);

// The plug-in's handle to the host object: one pointer, copied freely, owning nothing. Every member but
// CheckForError and DoesPropertyExist throws std::runtime_error with the host's own text when the host
// reports a failure.
class IFlashProgrammerUtility2 {
 public:
  explicit IFlashProgrammerUtility2(HostObject* hostObject) : host(hostObject) {}

  static void CheckForError(const char* error) {
    if (error != nullptr) throw std::runtime_error(error);
  }

  [[nodiscard]] bool DoesPropertyExist(const std::string& name) const {
    return host->table->getValueOfProperty(host, name.c_str()) != nullptr;
  }

  // Throws std::logic_error for a property that does not exist.
  [[nodiscard]] std::string GetValueOfProperty(const std::string& name) {
    if (DoesPropertyExist(name)) {
      // Asked anew: the host may hand out a buffer that its next answer overwrites.
      if (const char* value = host->table->getValueOfProperty(host, name.c_str())) return value;
    }
    throw std::logic_error("Unknown property \"" + name + "\"");
  }

  void SetValueOfProperty(const std::string& name, const std::string& value) {
    CheckForError(host->table->setValueOfProperty(host, name.c_str(), value.c_str()));
  }

  void ResetTarget(int kind) { CheckForError(host->table->resetTarget(host, kind)); }

  // Transfers the elements of a contiguous range in one host call; an empty range makes none.
  template <typename Iterator>
  void ReadMemory(Iterator first, Iterator last, Debugger::Address address, short page) {
    if (first == last) return;
    CheckForError(host->table->readMemory(
        host, std::to_address(first), static_cast<std::size_t>(last - first), address, page, sizeof(*first)));
  }
  template <typename Iterator>
  void WriteMemory(Iterator first, Iterator last, Debugger::Address address, short page) {
    if (first == last) return;
    CheckForError(host->table->writeMemory(
        host, std::to_address(first), static_cast<std::size_t>(last - first), address, page, sizeof(*first)));
  }

  [[nodiscard]] Debugger::Address LookupReg(const std::string& name) const {
    Debugger::Address address;
    CheckForError(host->table->lookupReg(host, name.c_str(), &address));
    return address;
  }

  [[nodiscard]] unsigned long long ReadReg(Debugger::Address address) {
    unsigned long long value = 0;
    CheckForError(host->table->readReg(host, address, &value));
    return value;
  }

  void WriteReg(Debugger::Address address, unsigned long long value) {
    CheckForError(host->table->writeReg(host, address, value));
  }

  void ReportError(const std::string& message) {
    CheckForError(host->table->reportError(host, message.c_str()));
  }
  void ReportInfo(const std::string& message) {
    CheckForError(host->table->reportInfo(host, message.c_str()));
  }

  void Sleep(unsigned int milliseconds) { CheckForError(host->table->sleep(host, milliseconds)); }

  // Make the named debug core the one that later connection, register and memory calls go to.
  void SetCore(const std::string& name) { CheckForError(host->table->setCore(host, name.c_str())); }
  void SetCoreById(const std::string& id) { CheckForError(host->table->setCoreById(host, id.c_str())); }

  void Connect(bool option) { CheckForError(host->table->connect(host, option)); }
  void ReConnect() { CheckForError(host->table->reConnect(host)); }
  void Disconnect(bool option) { CheckForError(host->table->disconnect(host, option)); }

  [[nodiscard]] bool IsConnected() const {
    bool connected = false;
    CheckForError(host->table->isConnected(host, &connected));
    return connected;
  }

 private:
  HostObject* host;
};
static_assert(sizeof(IFlashProgrammerUtility2) == sizeof(void*));
static_assert(std::is_trivially_copyable_v<IFlashProgrammerUtility2>, "must travel in a register");
