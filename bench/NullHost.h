#pragma once

#include <cstddef>
#include <cstdint>

#include "IFlashProgrammerUtility2.h"

namespace bench {

// A host whose probe answers at once and whose chip accepts everything: what is left of a load is the
// plug-in's own work. It looks at no data, so its own share of the time is a few nanoseconds a call.
class NullHost : public HostObject {
 public:
  NullHost();
  NullHost(const NullHost&) = delete;
  NullHost& operator=(const NullHost&) = delete;

  [[nodiscard]] IFlashProgrammerUtility2 Utility() { return IFlashProgrammerUtility2(this); }

  std::uint64_t calls = 0;       // of the function table
  std::uint64_t roundTrips = 0;  // of them, those that a probe carries to the target and back

 private:
  struct Entries;

  bool startFlag = false;  // TX_CMD_START: the next word is a command header
  std::uint32_t command = 0;
  std::uint32_t sequence = 0;
};

// The chip behind it: MAIN flash of 16 MiB in sectors of 2048 bytes, nothing else worth loading.
inline constexpr std::uint32_t kMainSize = 0x1000000;
inline constexpr std::uint32_t kSectorSize = 0x800;

}  // namespace bench
