#include <fmt/format.h>

#include "host/cli/PluginRun.h"
#include "host/cli/Verb.h"

namespace host::cli {

namespace {

struct EraseOptions {
  TargetOptions target;
  bool retain = false;
};

int Erase(const EraseOptions& options, Output& output) {
  return RunOperation(output, "erase", options.target, options.retain ? "ChipEraseRetain" : "Erase",
                      [&](Session&, PluginAnswer& answer) {
                        answer.lines.emplace_back(
                            "Erased", options.retain ? "MAIN but the sectors that the CCFG marks; CCFG, SCFG"
                                                     : "MAIN, CCFG, SCFG");
                      });
}

}  // namespace

void AddErase(CLI::App& program, Job& chosen) {
  AddVerb<EraseOptions>(
      program, chosen, "erase", "Erase a chip",
      [](CLI::App& verb, EraseOptions& options) {
        AddTargetOptions(verb, options.target);
        verb.add_flag("--retain", options.retain, "Keep the MAIN sectors that the chip's CCFG marks");
      },
      Erase);
}

}  // namespace host::cli
