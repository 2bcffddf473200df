#pragma once

#include <functional>
#include <vector>

#include "host/cli/Options.h"
#include "host/cli/Output.h"
#include "host/cli/Target.h"
#include "host/load/LoadRecord.h"
#include "host/plugin/PluginLibrary.h"

namespace host::cli {

// The one answer of a verb that lets the plug-in do something other than a load.
struct PluginAnswer {
  std::vector<LoadMessage> messages;
  std::vector<std::pair<std::string, std::string>> lines;  // what to show, by title
  std::optional<std::string> error;                        // why the verb has not done its job

  [[nodiscard]] bool Said(std::string_view text) const;
};

// Whether the chip is written to its file afterwards.
enum class ChipAfterwards { Kept, Dropped };

// Creates and initializes a device, runs `action` with it, shows messages as they come and the answer at the
// end, and returns the ExitCode. A failure of the plug-in becomes the answer's error.
int RunPlugin(const Options& options, Target& target, ChipAfterwards afterwards,
              const std::function<void(PluginDevice&, PluginAnswer&)>& action);

// A verb that is one named operation of the plug-in. `check` may look at the answer and set its error.
int RunOperation(const Options& options, Target& target, const std::string& operation,
                 const std::function<void(PluginAnswer&)>& check = {});

}  // namespace host::cli
