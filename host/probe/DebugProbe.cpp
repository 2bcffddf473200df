#include "host/probe/DebugProbe.h"

namespace host {

namespace {

struct NamedCore {
  Core core;
  std::string_view name;
};
constexpr NamedCore s_cores[] = {
    {Core::DebugPort, "CS_DAP_0"},
    {Core::SecureAp, "SEC_AP"},
    {Core::Cortex, "Cortex"},
};

}  // namespace

std::string_view CoreName(Core core) {
  for (const NamedCore& named : s_cores)
    if (named.core == core) return named.name;
  return "?";
}

std::optional<Core> FindCore(std::string_view name) {
  for (const NamedCore& named : s_cores)
    if (named.name == name) return named.core;
  return std::nullopt;
}

}  // namespace host
