#pragma once

#include <string_view>

#include "host/gdb/ChipTarget.h"

namespace host::gdb {

struct MonitorContext {
  Session& session;
  ChipTarget& target;
  Terminal& terminal;
  const Console& console;
};

// One line that a user typed behind "monitor". Throws a std::exception with a text for the user; the session
// goes on.
void RunMonitor(std::string_view line, const MonitorContext& context);

}  // namespace host::gdb
