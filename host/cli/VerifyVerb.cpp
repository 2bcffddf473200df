#include "host/cli/LoadVerb.h"
#include "host/cli/Verb.h"

namespace host::cli {

void AddVerify(CLI::App& program, Job& chosen) {
  AddVerb<LoadOptions>(
      program, chosen, "verify", "Compare a chip with images and change nothing; exit code 4 if it differs",
      [](CLI::App& verb, LoadOptions& load) {
        load.verifies = true;
        AddImageOptions(verb, load);
        verb.add_flag("--all", load.findsAll, "Find every MAIN sector that differs, not only the first");
      },
      RunLoad);
}

}  // namespace host::cli
