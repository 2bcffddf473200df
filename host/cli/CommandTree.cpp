#include "host/cli/CommandTree.h"

#include <CLI/CLI.hpp>

namespace host::cli {

// A group of options is a verb without a name to the parser.

std::vector<const CLI::App*> VerbsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* verb) { return !verb->get_name().empty(); });
}

std::vector<const CLI::Option*> OptionsOf(const CLI::App& app) {
  std::vector<const CLI::Option*> options = app.get_options([&app](const CLI::Option* option) {
    return !option->get_group().empty() && (!app.get_name().empty() || option != app.get_help_ptr());
  });
  for (const CLI::App* group :
       app.get_subcommands([](const CLI::App* verb) { return verb->get_name().empty(); })) {
    const std::vector<const CLI::Option*> more = OptionsOf(*group);
    options.insert(options.end(), more.begin(), more.end());
  }
  return options;
}

bool TakesValue(const CLI::Option& option) {
  return option.get_items_expected_max() != 0;
}

}  // namespace host::cli
