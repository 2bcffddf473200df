#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// A register of the chip as a debug probe reaches it.
struct PortRegister {
  std::string name;  // as the plug-in asks for it
  std::uint8_t port = 0;
  std::uint8_t offset = 0;  // a multiple of 4
  bool operator==(const PortRegister&) const = default;
};

// The access ports behind the chip's debug port. Without a word in the description they are where the family
// has them.
struct AccessPorts {
  std::uint8_t memory = 0;  // the AHB-AP, through which RAM and flash of the running chip are reached
  std::vector<PortRegister> registers = {
      {"CFGAP_DEVICEID", 1, 0x00}, {"CFGAP_PARTID", 1, 0x04}, {"CFGAP_DEVICESTATUS", 1, 0x08},
      {"SECAP_TXDATA", 2, 0x00},   {"SECAP_TXCTL", 2, 0x04},  {"SECAP_RXDATA", 2, 0x08},
      {"SECAP_RXCTL", 2, 0x0C},    {"SECAP_RSTCTL", 2, 0x10},
  };

  // Null when there is no such register.
  [[nodiscard]] const PortRegister* Find(std::string_view name) const;
};

}  // namespace host
