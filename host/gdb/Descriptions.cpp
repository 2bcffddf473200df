#include "host/gdb/Descriptions.h"

#include <fmt/format.h>

namespace host::gdb {

std::string MemoryMapXml(const MemoryMap& map) {
  std::string memories;
  const auto add = [&](AddressRange range, std::uint32_t blockSize) {
    if (range.size == 0) return;
    for (std::uint32_t base : {range.base, range.base | map.aliasMask}) {
      if (blockSize == 0) {
        memories += fmt::format("<memory type=\"ram\" start=\"{:#x}\" length=\"{:#x}\"/>", base, range.size);
      } else {
        memories += fmt::format(
            "<memory type=\"flash\" start=\"{:#x}\" length=\"{:#x}\"><property "
            "name=\"blocksize\">{:#x}</property></memory>",
            base, range.size, blockSize);
      }
      if (map.aliasMask == 0) break;
    }
  };
  add(map.main, map.sectorSize);
  add(map.ccfg, map.ccfg.size);
  add(map.scfg, map.scfg.size);
  add(map.otp, map.otp.size);
  add(map.ram, 0);
  return "<?xml version=\"1.0\"?><!DOCTYPE memory-map PUBLIC \"+//IDN gnu.org//DTD GDB Memory Map V1.0//EN\" "
         "\"http://sourceware.org/gdb/gdb-memory-map.dtd\"><memory-map>" +
         memories + "</memory-map>";
}

std::string TargetXml() {
  std::string registers;
  for (unsigned i = 0; i < 13; ++i) registers += fmt::format("<reg name=\"r{}\" bitsize=\"32\"/>", i);
  registers +=
      "<reg name=\"sp\" bitsize=\"32\" type=\"data_ptr\"/><reg name=\"lr\" bitsize=\"32\"/>"
      "<reg name=\"pc\" bitsize=\"32\" type=\"code_ptr\"/><reg name=\"xpsr\" bitsize=\"32\"/>";
  return "<?xml version=\"1.0\"?><!DOCTYPE target SYSTEM \"gdb-target.dtd\"><target>"
         "<architecture>arm</architecture><feature name=\"org.gnu.gdb.arm.m-profile\">" +
         registers + "</feature></target>";
}

}  // namespace host::gdb
