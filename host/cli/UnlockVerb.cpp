#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "host/cli/Password.h"
#include "host/cli/PluginRun.h"
#include "host/cli/Verb.h"

namespace host::cli {

namespace {

bool IsGiven(const PasswordOptions& password) {
  return !password.text.empty() || !password.hex.empty() || !password.file.empty() ||
         std::getenv("TOVIK_PASSWORD") != nullptr;
}

int Unlock(const TargetOptions& given, Output& output) {
  TargetOptions target = given;
  const bool isSet =
      std::any_of(target.settings.begin(), target.settings.end(),
                  [](const std::string& setting) { return setting.starts_with("DebugPassword"); });
  // Who types "unlock" at a terminal, and nothing else, means to be asked.
  if (!IsGiven(target.password) && !isSet && isatty(STDIN_FILENO) != 0)
    target.password.asks = CanAskPassword();
  return RunPlugin(output, "unlock", target, ChipAfterwards::Kept,
                   [](Session& session, PluginDevice& device, PluginAnswer& answer) {
                     constexpr long long kLeaveCommandMode = 1;
                     session.services.ConnectDebugPort();
                     (void)device.RunScriptFunction("EnsureAuthentication", {kLeaveCommandMode});
                     // The plug-in reports a refused password and goes on: whether debugging is open, the
                     // chip says.
                     if (session.IsDebuggingOpen()) {
                       answer.lines.emplace_back("Debugging", "open");
                     } else {
                       answer.error = "debugging stays closed";
                     }
                   });
}

}  // namespace

void AddUnlock(CLI::App& program, Job& chosen) {
  AddVerb<TargetOptions>(
      program, chosen, "unlock",
      "Open a chip for debugging, with its password where it asks; at a terminal, asks for one",
      AddTargetOptions, Unlock);
}

}  // namespace host::cli
