#include "host/cli/Config.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <vector>

#include "host/device/InputError.h"

namespace host::cli {

namespace {

// What stands under no heading is said to the verb that was chosen, if it has such an option; what stands
// under another verb's heading is for another day.
class SharedConfig : public CLI::ConfigINI {
 public:
  SharedConfig(const CLI::App& app, std::string verb) : program(app), chosen(std::move(verb)) {}

  [[nodiscard]] std::vector<CLI::ConfigItem> from_config(std::istream& input) const override {
    const auto verbs =
        program.get_subcommands([this](const CLI::App* verb) { return verb->get_name() == chosen; });
    std::vector<CLI::ConfigItem> meant;
    for (CLI::ConfigItem item : CLI::ConfigINI::from_config(input)) {
      if (item.name == "++" || item.name == "--") continue;  // a heading's begin and end
      const bool isShared = item.parents.empty();
      if (!isShared && item.parents.front() != chosen) continue;
      if (isShared && program.get_option_no_throw("--" + item.name) == nullptr) {
        if (verbs.empty() || verbs.front()->get_option_no_throw("--" + item.name) == nullptr) continue;
        item.parents = {chosen};
      }
      meant.push_back(std::move(item));
    }
    return meant;
  }

 private:
  const CLI::App& program;
  std::string chosen;
};

}  // namespace

void AddConfig(CLI::App& program, const std::string& verb) {
  program.config_formatter(std::make_shared<SharedConfig>(program, verb));
  const char* const usual = std::getenv("TOVIK_CONFIG");
  const bool isSet = usual != nullptr && *usual != 0;
  if (isSet && !std::filesystem::exists(usual))
    throw InputError(std::string("TOVIK_CONFIG: ") + usual + ": no such file");
  program
      .set_config("--config", isSet ? usual : "",
                  "File with options, NAME=VALUE a line, for all verbs or under a [verb] heading")
      ->type_name("FILE (Env:TOVIK_CONFIG)");
}

}  // namespace host::cli
