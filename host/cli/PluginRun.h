#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/cli/Options.h"
#include "host/cli/Output.h"
#include "host/load/LoadRecord.h"
#include "host/load/Session.h"

namespace host::cli {

// The one answer of a verb that lets the plug-in do something other than a load.
struct PluginAnswer {
  std::vector<LoadMessage> messages;
  std::vector<std::pair<std::string, std::string>> lines;  // what to show, by title
  std::optional<std::string> error;                        // why the verb has not done its job
  bool differs = false;                                    // `error` is that the chip is not as it should be

  [[nodiscard]] bool Said(std::string_view text) const;
};

// Whether the chip is written to its file afterwards.
enum class ChipAfterwards { Kept, Dropped };

using PluginAction = std::function<void(Session&, PluginDevice&, PluginAnswer&)>;

// Opens a session on a chip that is there, creates and initializes a device, runs `action` with it, shows
// messages as they come and the answer at the end, and returns the ExitCode. A failure of the plug-in becomes
// the answer's error. Throws InputError before anything is done.
int RunPlugin(Output& output, std::string_view verb, const TargetOptions& options, ChipAfterwards afterwards,
              const PluginAction& action);

// A verb that is one named operation of the plug-in. `check` may look at the answer and add to it.
int RunOperation(Output& output, std::string_view verb, const TargetOptions& options,
                 const std::string& operation,
                 const std::function<void(Session&, PluginAnswer&)>& check = {});

}  // namespace host::cli
