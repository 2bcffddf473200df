#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <utility>

#include "host/cli/Options.h"
#include "host/cli/Output.h"
#include "host/cli/Verbs.h"

namespace host::cli {

// Adds a verb whose options are a value of its own: `describe` ties them to the command line, and `work` gets
// them when the user has chosen the verb.
template <typename VerbOptions, typename Describe, typename Work>
void AddVerb(CLI::App& group, Job& chosen, const char* name, const char* help, Describe describe, Work work) {
  const auto options = std::make_shared<VerbOptions>();
  CLI::App* const verb = group.add_subcommand(name, help);
  describe(*verb, *options);
  verb->callback([&chosen, options, work] {
    chosen = [options, work](Output& output) { return work(std::as_const(*options), output); };
  });
}

}  // namespace host::cli
