#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace simulator {

// The debug ports' registers a probe can address: access port number in bits 23-16, register offset below.
enum class Register : std::uint32_t {
  SecApTxData = 0x0002'0000,
  SecApTxCtl = 0x0002'0004,  // bit 0 TX_DATA_FULL, bit 1 TX_CMD_START
  SecApRxData = 0x0002'0008,
  SecApRxCtl = 0x0002'000C,   // bit 0 RX_DATA_READY, bit 2 CMD_WORKING, bit 3 HSM error answer
  SecApRstCtl = 0x0002'0010,  // 0x5C: reset into SACI
  CfgApDeviceId = 0x0001'0000,
  CfgApPartId = 0x0001'0004,
  CfgApDeviceStatus = 0x0001'0008,  // bits 7-0 life cycle, 15-8 boot status code, 24 AHB-AP enabled
};

// By the name debuggers use ("SECAP_TXCTL", "CFGAP_DEVICEID", ...); nothing for a name that is not known.
std::optional<Register> FindRegister(std::string_view name);
// Nothing for an address without a register.
std::optional<Register> RegisterAt(std::uint64_t address);

}  // namespace simulator
