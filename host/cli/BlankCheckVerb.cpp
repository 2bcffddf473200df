#include "host/cli/PluginRun.h"
#include "host/cli/Verb.h"
#include "host/plugin/PluginTexts.h"

namespace host::cli {

namespace {

int BlankCheck(const TargetOptions& target, Output& output) {
  return RunOperation(output, "blank-check", target, "BlankCheck", [](Session&, PluginAnswer& answer) {
    if (answer.Said(kFlashIsBlank)) return;
    answer.error = "the chip is not blank";
    answer.differs = true;
  });
}

}  // namespace

void AddBlankCheck(CLI::App& program, Job& chosen) {
  AddVerb<TargetOptions>(program, chosen, "blank-check",
                         "Tell whether MAIN flash and CCFG are blank; exit code 4 if not", AddTargetOptions,
                         BlankCheck);
}

}  // namespace host::cli
