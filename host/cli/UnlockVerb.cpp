#include <CLI/CLI.hpp>
#include <memory>

#include "host/cli/PluginRun.h"
#include "host/cli/Verbs.h"

namespace host::cli {

namespace {

struct UnlockOptions {
  std::string password;
  std::string passwordHex;
};

int Unlock(const Options& options, const UnlockOptions& unlock) {
  Options withPassword = options;
  std::vector<std::string>& settings = withPassword.target.settings;
  if (!unlock.password.empty()) {
    settings.push_back("DebugPasswordFormatList=Text");
    settings.push_back("DebugPassword=" + unlock.password);
  } else if (!unlock.passwordHex.empty()) {
    settings.push_back("DebugPasswordFormatList=Hex");
    settings.push_back("DebugPasswordHex=" + unlock.passwordHex);
  }
  Target target(withPassword);
  return RunPlugin(options, target, ChipAfterwards::Kept, [&](PluginDevice& device, PluginAnswer& answer) {
    constexpr long long kLeaveCommandMode = 1;
    target.services.ConnectDebugPort();
    (void)device.RunScriptFunction("EnsureAuthentication", {kLeaveCommandMode});
    // The plug-in reports a refused password and goes on: whether debugging is open, the chip says.
    if (target.probe.IsDebuggingOpen()) {
      answer.lines.emplace_back("Debugging", "open");
    } else {
      answer.error = "debugging stays closed";
    }
  });
}

}  // namespace

void AddUnlock(CLI::App& program, Options& options) {
  auto unlock = std::make_shared<UnlockOptions>();
  CLI::App* verb =
      program.add_subcommand("unlock", "Open a chip for debugging, with its password where it asks");
  AddTargetOptions(*verb, options);
  CLI::Option* text =
      verb->add_option("--password", unlock->password, "The password as text")->type_name("TEXT");
  verb->add_option("--password-hex", unlock->passwordHex, "The password in hexadecimal digits")
      ->type_name("HEX")
      ->excludes(text);
  verb->callback(
      [&options, unlock] { options.run = [&options, unlock] { return Unlock(options, *unlock); }; });
}

}  // namespace host::cli
