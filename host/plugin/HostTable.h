#pragma once

#include "IFlashProgrammerUtility2.h"

namespace host {

// The contract's function table over a class that derives from HostObject and has, for each function, a
// member of its name without the object; and ReservedFunction(slot) for what the contract reserves, since a
// null entry would only be a crash. A class whose members are private befriends this one.
template <typename Host>
class HostTable {
 public:
  static HostFunctionTable Make();

 private:
  template <auto member>
  struct Entry;
  template <typename... Arguments, const char* (Host::*member)(Arguments...)>
  struct Entry<member> {
    const static char* Call(HostObject* object, Arguments... arguments) {
      return (static_cast<Host&>(*object).*member)(arguments...);
    }
  };

  template <int slot>
  const static char* CallReserved(HostObject* object) {
    return static_cast<Host&>(*object).ReservedFunction(slot);
  }
  template <int slot>
  static HostFunctionTable::Reserved Reserved() {
    return reinterpret_cast<HostFunctionTable::Reserved>(&CallReserved<slot>);
  }
};

template <typename Host>
HostFunctionTable HostTable<Host>::Make() {
  // A host may well have another question of this name.
  constexpr const char* (Host::*isConnected)(bool*) = &Host::IsConnected;
  return {
      .getValueOfProperty = Entry<&Host::GetValueOfProperty>::Call,
      .setValueOfProperty = Entry<&Host::SetValueOfProperty>::Call,
      .reserved2to6 = {Reserved<2>(), Reserved<3>(), Reserved<4>(), Reserved<5>(), Reserved<6>()},
      .resetTarget = Entry<&Host::ResetTarget>::Call,
      .reserved8to9 = {Reserved<8>(), Reserved<9>()},
      .readMemory = Entry<&Host::ReadMemory>::Call,
      .writeMemory = Entry<&Host::WriteMemory>::Call,
      .lookupReg = Entry<&Host::LookupReg>::Call,
      .readReg = Entry<&Host::ReadReg>::Call,
      .writeReg = Entry<&Host::WriteReg>::Call,
      .reserved15to18 = {Reserved<15>(), Reserved<16>(), Reserved<17>(), Reserved<18>()},
      .reportError = Entry<&Host::ReportError>::Call,
      .reportInfo = Entry<&Host::ReportInfo>::Call,
      .reserved21 = Reserved<21>(),
      .sleep = Entry<&Host::Sleep>::Call,
      .reserved23to26 = {Reserved<23>(), Reserved<24>(), Reserved<25>(), Reserved<26>()},
      .setCore = Entry<&Host::SetCore>::Call,
      .reserved28to32 = {Reserved<28>(), Reserved<29>(), Reserved<30>(), Reserved<31>(), Reserved<32>()},
      .disconnect = Entry<&Host::Disconnect>::Call,
      .isConnected = Entry<isConnected>::Call,
      .reserved35 = Reserved<35>(),
      .setCoreById = Entry<&Host::SetCoreById>::Call,
      .connect = Entry<&Host::Connect>::Call,
      .reConnect = Entry<&Host::ReConnect>::Call,
  };
}

}  // namespace host
