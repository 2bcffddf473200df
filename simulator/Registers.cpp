#include "Registers.h"

namespace simulator {
namespace {

struct NamedRegister {
  std::string_view name;
  Register which;
};
constexpr NamedRegister s_registers[] = {
    {"SECAP_TXDATA", Register::SecApTxData}, {"SECAP_TXCTL", Register::SecApTxCtl},
    {"SECAP_RXDATA", Register::SecApRxData}, {"SECAP_RXCTL", Register::SecApRxCtl},
    {"SECAP_RSTCTL", Register::SecApRstCtl}, {"CFGAP_DEVICEID", Register::CfgApDeviceId},
    {"CFGAP_PARTID", Register::CfgApPartId}, {"CFGAP_DEVICESTATUS", Register::CfgApDeviceStatus},
};

}  // namespace

std::optional<Register> FindRegister(std::string_view name) {
  for (const NamedRegister& entry : s_registers)
    if (entry.name == name) return entry.which;
  return std::nullopt;
}

std::optional<Register> RegisterAt(std::uint64_t address) {
  for (const NamedRegister& entry : s_registers)
    if (static_cast<std::uint32_t>(entry.which) == address) return entry.which;
  return std::nullopt;
}

}  // namespace simulator
