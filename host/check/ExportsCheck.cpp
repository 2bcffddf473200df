#include <fmt/format.h>

#include <algorithm>

#include "host/check/Checks.h"
#include "host/check/Exports.h"
#include "host/plugin/PluginLibrary.h"

namespace host {

void CheckExports(const CheckPart& part, CheckReport& report) {
  constexpr std::string_view kEntry = "CreateFlashDevice4";
  const std::vector<std::string> exported = ExportsOf(part.plugin);
  const bool hasEntry = std::find(exported.begin(), exported.end(), kEntry) != exported.end();
  if (!hasEntry) report.Find(fmt::format("does not export {}", kEntry));
  for (const std::string& symbol : exported) {
    report.Count();
    if (symbol != kEntry) report.Find(fmt::format("exports {}, too", symbol));
  }
  report.Step("being loaded");
  if (hasEntry) (void)PluginLibrary(part.plugin);  // throws, naming the symbol that nobody has
}

}  // namespace host
