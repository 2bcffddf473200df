#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/cli/ExitCode.h"
#include "host/cli/LoadVerb.h"
#include "host/cli/Output.h"
#include "host/image/ImageFile.h"
#include "host/load/Session.h"
#include "host/plan/LoadPlan.h"
#include "host/report/LoadHtml.h"

namespace host::cli {

// The load of one board. Several of them may work side by side, each on a thread and with an output of its
// own.
class BoardLoad {
 public:
  // Opens the board. Throws InputError for all that can be known to be wrong, after further words on it at
  // `itsOutput`; no chip has been touched then. What is referred to must outlive this object.
  BoardLoad(const LoadOptions& itsOptions, const TargetOptions& itsTarget,
            const std::vector<ImageFile>& images, Output& itsOutput);

  // Lines on what is to be done, on the board, and what there is to warn of.
  [[nodiscard]] std::string Plan() const;
  [[nodiscard]] std::string Board();
  [[nodiscard]] const std::vector<std::string>& Warnings() const { return record.warnings; }

  // Compares first where that is wanted, loads, keeps the chip, and tells of all that at the output: messages
  // as they come, then the summary. Throws nothing.
  void Work(const LoadEventSink& progress);

  // Of the work that is done.
  [[nodiscard]] ExitCode Code() const { return code; }
  [[nodiscard]] const std::string& Error() const { return error; }  // empty when there was none

  // All that is to be told of it on a page.
  [[nodiscard]] LoadReport Report();

  [[nodiscard]] host::Session& Session() { return *session; }

 private:
  void RequireUnopposed(const std::vector<std::string>& refusals);
  [[nodiscard]] bool IsThere();
  void Load(const LoadEventSink& progress);
  void Keep();
  void Tell();
  void DescribeConfiguration();

  const LoadOptions& load;
  const TargetOptions& target;
  Output& output;
  std::unique_ptr<host::Session> session;
  LoadPlan plan;
  LoadRecord record;
  LoadReport report;  // but for the record, and for what the chip holds in the end
  bool keepsChip = false;
  ExitCode code = kFailed;
  std::string error;
};

}  // namespace host::cli
