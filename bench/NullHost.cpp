#include "NullHost.h"

#include <cstring>
#include <string_view>

namespace bench {
namespace {

constexpr struct {
  std::string_view name;
  const char* value;
} s_properties[] = {
    {"SectorSize", "0x800"},
    {"CcfgBase", "0x4E020000"},
    {"CcfgSize", "0x800"},
    {"CcfgUserRecordSize", "0x80"},
    {"ccfg.userRecord.crc32Info", "0x700:0x7C"},
    {"FlashEraseSetting", "Do not erase sectors (program load only)"},
    {"ImageVerificationSetting", "0"},
    {"FlashPageToggle", "0"},
    {"FlashPagesFilledWith", "0"},
    {"FlashVerboseMode", "0"},
    {"DeviceInfoRevisionTranslation", "0x0BB77:1.0:A"},
    {"DeviceInfoFlashSizeTranslation", "*:*:*:0x1000000"},
    {"DeviceInfoRAMSizeTranslation", "*:*:*:0x9000"},
    {"DebugPasswordFormatList", "Hex"},
    {"DebugPasswordHex", ""},
};

constexpr struct {
  std::string_view name;
  unsigned int value;  // what it reads as
} s_registers[] = {
    {"SECAP_TXCTL", 0},                   // always empty
    {"SECAP_RXCTL", 1},                   // always ready
    {"SECAP_RSTCTL", 0},                  //
    {"CFGAP_DEVICESTATUS", 0x0100'2005},  // in SACI, AHB-AP enabled, a life cycle that may leave SACI
    {"CFGAP_DEVICEID", 0x0BB7'7000},      //
    {"CFGAP_PARTID", 0},
};
constexpr unsigned int kTxCtl = 0;  // its place in the table above is its address

constexpr std::uint32_t kPipelinedId = 15;

}  // namespace

struct NullHost::Entries {
  static NullHost& Self(HostObject* object) { return static_cast<NullHost&>(*object); }

  const static char* Count(HostObject* object) {
    ++Self(object).calls;
    return nullptr;
  }
  const static char* CountRoundTrip(HostObject* object) {
    ++Self(object).roundTrips;
    return Count(object);
  }

  const static char* GetValueOfProperty(HostObject* object, const char* name) {
    ++Self(object).calls;
    for (const auto& property : s_properties)
      if (property.name == name) return property.value;
    return nullptr;
  }

  const static char* LookupReg(HostObject* object, const char* name, Debugger::Address* address) {
    for (unsigned int i = 0; i < std::size(s_registers); ++i) {
      if (s_registers[i].name != name) continue;
      *address = Debugger::Address(i);
      return Count(object);
    }
    return "no such register";
  }
  const static char* ReadReg(HostObject* object, Debugger::Address address, unsigned long long* value) {
    *value = s_registers[Extract(address)].value;
    return CountRoundTrip(object);
  }
  const static char* WriteReg(HostObject* object, Debugger::Address address, unsigned long long value) {
    if (Extract(address) == kTxCtl) Self(object).startFlag = value == 2;
    return CountRoundTrip(object);
  }

  const static char* WriteMemory(HostObject* object, const void* elements, std::size_t, Debugger::Address,
                                 int, std::size_t) {
    NullHost& self = Self(object);
    if (self.startFlag) {
      std::uint32_t header = 0;
      std::memcpy(&header, elements, sizeof header);
      self.command = header & 0xFF;
      self.sequence = header >> 8 & 0xFF;
    }
    return CountRoundTrip(object);
  }
  // Every answer is one header word: success without data. A pipelined transfer counts on by itself.
  const static char* ReadMemory(HostObject* object, void* elements, std::size_t, Debugger::Address, int,
                                std::size_t) {
    NullHost& self = Self(object);
    const std::uint32_t header = self.command | (self.sequence & 0xFF) << 8;
    std::memcpy(elements, &header, sizeof header);
    if (self.command == kPipelinedId) ++self.sequence;
    return CountRoundTrip(object);
  }

  const static char* IsConnected(HostObject* object, bool* connected) {
    *connected = true;
    return Count(object);
  }

  static HostFunctionTable Table() {
    HostFunctionTable table{};  // the reserved entries stay null: a call of one crashes, as it should
    table.getValueOfProperty = GetValueOfProperty;
    table.setValueOfProperty = [](HostObject* object, const char*, const char*) { return Count(object); };
    table.resetTarget = [](HostObject* object, int) { return CountRoundTrip(object); };
    table.readMemory = ReadMemory;
    table.writeMemory = WriteMemory;
    table.lookupReg = LookupReg;
    table.readReg = ReadReg;
    table.writeReg = WriteReg;
    table.reportError = [](HostObject* object, const char*) { return Count(object); };
    table.reportInfo = [](HostObject* object, const char*) { return Count(object); };
    table.sleep = [](HostObject* object, unsigned int) { return Count(object); };
    table.setCore = [](HostObject* object, const char*) { return Count(object); };
    table.disconnect = [](HostObject* object, bool) { return Count(object); };
    table.isConnected = IsConnected;
    table.setCoreById = [](HostObject* object, const char*) { return Count(object); };
    table.connect = [](HostObject* object, bool) { return Count(object); };
    table.reConnect = Count;
    return table;
  }
};

NullHost::NullHost() : HostObject{nullptr} {
  const static HostFunctionTable s_table = Entries::Table();
  table = &s_table;
}

}  // namespace bench
