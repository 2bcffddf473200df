#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace host {

// A host call that is made to fail, to see what the plug-in makes of it.
struct HostFault {
  std::uint64_t call = 0;  // which call of the session fails, 1 for the first
  std::string text;        // the error text it answers; may be empty, which is a failure too
};

// Whether a --fault text is about host calls ("host:..."); all others are about the chip.
[[nodiscard]] bool IsHostFault(std::string_view text);

// Reads "host:N" or "host:N=TEXT". Throws InputError naming the text when it is neither.
[[nodiscard]] HostFault ParseHostFault(std::string_view text);

}  // namespace host
