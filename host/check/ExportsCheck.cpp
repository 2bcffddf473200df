#include <fmt/format.h>

#include "host/check/Checks.h"
#include "host/check/Exports.h"
#include "host/plugin/PluginLibrary.h"

namespace host {

void CheckExports(const CheckPart& part, CheckReport& report) {
  constexpr std::string_view kEntry = "CreateFlashDevice4";
  bool hasEntry = false;
  for (const std::string& symbol : ExportsOf(part.plugin)) {
    report.Count();
    if (symbol == kEntry)
      hasEntry = true;
    else
      report.Find(fmt::format("exports {}, too", symbol));
  }
  if (!hasEntry) return report.Find(fmt::format("does not export {}", kEntry));
  report.Step("being loaded");
  const PluginLibrary loads(part.plugin);  // throws, naming the symbol that nobody has
}

}  // namespace host
