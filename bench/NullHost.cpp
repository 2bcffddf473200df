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

NullHost::NullHost() : HostObject{nullptr} {
  const static HostFunctionTable s_table = host::HostTable<NullHost>::Make();
  table = &s_table;
}

const char* NullHost::GetValueOfProperty(const char* name) {
  ++calls;
  for (const auto& property : s_properties)
    if (property.name == name) return property.value;
  return nullptr;
}

const char* NullHost::LookupReg(const char* name, Debugger::Address* address) {
  for (unsigned int i = 0; i < std::size(s_registers); ++i) {
    if (s_registers[i].name != name) continue;
    *address = Debugger::Address(i);
    return Count();
  }
  return "no such register";
}

const char* NullHost::ReadReg(Debugger::Address address, unsigned long long* value) {
  *value = s_registers[Extract(address)].value;
  return Count();
}

const char* NullHost::WriteReg(Debugger::Address address, unsigned long long value) {
  if (Extract(address) == kTxCtl) startFlag = value == 2;
  return Count();
}

const char* NullHost::WriteMemory(const void* elements, std::size_t, Debugger::Address, int, std::size_t) {
  if (startFlag) {
    std::uint32_t header = 0;
    std::memcpy(&header, elements, sizeof header);
    command = header & 0xFF;
    sequence = header >> 8 & 0xFF;
  }
  return Count();
}

// Every answer is one header word: success without data. A pipelined transfer counts on by itself.
const char* NullHost::ReadMemory(void* elements, std::size_t, Debugger::Address, int, std::size_t) {
  const std::uint32_t header = command | (sequence & 0xFF) << 8;
  std::memcpy(elements, &header, sizeof header);
  if (command == kPipelinedId) ++sequence;
  return Count();
}

}  // namespace bench
