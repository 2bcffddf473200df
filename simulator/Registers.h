#pragma once

#include <cstdint>

namespace simulator {

// The registers of the chip's own access ports. Where a probe finds them is PortLayout's business.
enum class Register : std::uint8_t {
  SecApTxData,
  SecApTxCtl,  // bit 0 TX_DATA_FULL, bit 1 TX_CMD_START
  SecApRxData,
  SecApRxCtl,   // bit 0 RX_DATA_READY, bit 2 CMD_WORKING, bit 3 HSM error answer
  SecApRstCtl,  // kResetIntoSaci
  CfgApDeviceId,
  CfgApPartId,
  CfgApDeviceStatus,  // bits 7-0 life cycle, 15-8 boot status code, 24 AHB-AP enabled
};

inline constexpr std::uint32_t kResetIntoSaci = 0x5C;

}  // namespace simulator
