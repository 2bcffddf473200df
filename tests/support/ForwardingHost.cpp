#include "ForwardingHost.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace {

using Table = HostFunctionTable;

template <std::size_t size>
struct Name {
  constexpr Name(const char (&literal)[size]) { std::copy_n(literal, size, text); }
  char text[size]{};
};

template <typename... Others>
std::string_view SubjectOf(const char* name, Others...) {
  return name;
}
template <typename... Others>
std::string_view SubjectOf(Others...) {
  return {};
}

}  // namespace

struct ForwardingHost::Entries {
  template <Name name, auto member>
  struct Entry;
  template <Name name, typename... Arguments, const char* (ForwardingHost::*member)(Arguments...)>
  struct Entry<name, member> {
    static const char* Call(HostObject* object, Arguments... arguments) {
      auto& self = static_cast<ForwardingHost&>(*object);
      const SeenCall call{name.text, SubjectOf(arguments...)};
      constexpr bool isLookup = std::string_view(name.text) == "GetProperty";
      const char* const refusal = self.Before(call);
      const char* const answer =
          refusal == nullptr ? (self.*member)(arguments...) : (isLookup ? nullptr : refusal);
      self.After(call, isLookup ? refusal : answer);
      return answer;
    }
  };

  template <std::size_t position>
  static void Reserved() {
    std::fprintf(stderr, "reserved host function %zu was called\n", position);
    std::abort();
  }

  static const Table s_table;
};

const Table ForwardingHost::Entries::s_table = {
    .getValueOfProperty = Entry<"GetProperty", &ForwardingHost::GetProperty>::Call,
    .setValueOfProperty = Entry<"SetProperty", &ForwardingHost::SetProperty>::Call,
    .reserved2to6 = {Reserved<2>, Reserved<3>, Reserved<4>, Reserved<5>, Reserved<6>},
    .resetTarget = Entry<"ResetTarget", &ForwardingHost::ResetTarget>::Call,
    .reserved8to9 = {Reserved<8>, Reserved<9>},
    .readMemory = Entry<"ReadMemory", &ForwardingHost::ReadMemory>::Call,
    .writeMemory = Entry<"WriteMemory", &ForwardingHost::WriteMemory>::Call,
    .lookupReg = Entry<"LookupReg", &ForwardingHost::LookupReg>::Call,
    .readReg = Entry<"ReadReg", &ForwardingHost::ReadReg>::Call,
    .writeReg = Entry<"WriteReg", &ForwardingHost::WriteReg>::Call,
    .reserved15to18 = {Reserved<15>, Reserved<16>, Reserved<17>, Reserved<18>},
    .reportError = Entry<"ReportError", &ForwardingHost::ReportError>::Call,
    .reportInfo = Entry<"ReportInfo", &ForwardingHost::ReportInfo>::Call,
    .reserved21 = Reserved<21>,
    .sleep = Entry<"Sleep", &ForwardingHost::Sleep>::Call,
    .reserved23to26 = {Reserved<23>, Reserved<24>, Reserved<25>, Reserved<26>},
    .setCore = Entry<"SetCore", &ForwardingHost::SetCore>::Call,
    .reserved28to32 = {Reserved<28>, Reserved<29>, Reserved<30>, Reserved<31>, Reserved<32>},
    .disconnect = Entry<"Disconnect", &ForwardingHost::Disconnect>::Call,
    .isConnected = Entry<"IsConnected", &ForwardingHost::IsConnected>::Call,
    .reserved35 = Reserved<35>,
    .setCoreById = Entry<"SetCoreById", &ForwardingHost::SetCoreById>::Call,
    .connect = Entry<"Connect", &ForwardingHost::Connect>::Call,
    .reConnect = Entry<"ReConnect", &ForwardingHost::ReConnect>::Call,
};

ForwardingHost::ForwardingHost(HostObject* nextHost) : HostObject{&Entries::s_table}, next(nextHost) {}
