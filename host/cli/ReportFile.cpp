#include "host/cli/ReportFile.h"

#include <fmt/format.h>

#include <exception>

#include "host/cli/Files.h"
#include "host/cli/Target.h"

namespace host::cli {

ExitCode WriteReport(const LoadOptions& load, const std::vector<BoardLoad*>& boards, ExitCode code,
                     Output& output) {
  if (load.report.empty()) return code;
  std::vector<LoadReport> reports;
  reports.reserve(boards.size());
  for (BoardLoad* const board : boards) reports.push_back(board->Report());
  try {
    ReplaceFile(load.report, LoadHtml(kProgram, reports));
    return code;
  } catch (const std::exception& error) {
    output.Complain(fmt::format("report {}", error.what()));
    return IsWorse(kErrorsReported, code) ? kErrorsReported : code;
  }
}

}  // namespace host::cli
