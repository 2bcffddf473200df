#include "host/cli/Boards.h"

#include <fmt/format.h>

#include "host/cli/Files.h"
#include "host/device/InputError.h"
#include "host/probe/OpenProbe.h"
#include "host/probe/UsbProbes.h"

namespace host::cli {

namespace {

void RequireOneWayOfNaming(const LoadOptions& load) {
  const TargetOptions& target = load.target;
  if (load.allProbes && !target.probes.empty())
    throw InputError(fmt::format("--all-probes takes every probe: not with --probe {}", target.probe));
  if ((load.allProbes || target.probes.size() > 1) && !target.chips.empty())
    throw InputError(fmt::format(
        "--chip {}: boards are named by several probes, or by several chip files of simulated ones",
        target.chip));
}

void RequireNoTrace(const TargetOptions& target) {
  if (!target.trace.empty()) throw InputError("--trace records a single board: load that one alone");
  if (!target.wireTrace.empty()) throw InputError("--trace-wire records a single board: load that one alone");
}

bool IsSameBoard(const TargetOptions& one, const TargetOptions& other) {
  return one.chip.empty() ? IsSameProbe(one.probe, other.probe) : IsSameFile(one.chip, other.chip);
}

void RequireDistinct(const std::vector<TargetOptions>& boards) {
  for (auto board = boards.begin(); board != boards.end(); ++board)
    for (auto earlier = boards.begin(); earlier != board; ++earlier)
      if (IsSameBoard(*board, *earlier))
        throw InputError(
            BoardName(*board) == BoardName(*earlier)
                ? fmt::format("{} is named twice", BoardName(*board))
                : fmt::format("{} and {} are one board", BoardName(*earlier), BoardName(*board)));
}

// Where there is none, opening one says why.
std::vector<std::string> AllProbes() {
  std::vector<std::string> names;
  for (const ListedProbe& probe : ListProbes()) names.push_back(probe.name);
  if (names.empty()) names.emplace_back("cmsis-dap");
  return names;
}

}  // namespace

bool NamesSeveral(const LoadOptions& load) {
  return load.allProbes || load.target.probes.size() > 1 || load.target.chips.size() > 1;
}

std::vector<TargetOptions> BoardsOf(const LoadOptions& load) {
  RequireOneWayOfNaming(load);
  RequireNoTrace(load.target);
  const bool isByChip = load.target.chips.size() > 1;
  const std::vector<std::string> probes = load.allProbes ? AllProbes() : load.target.probes;
  std::vector<TargetOptions> boards;
  for (const std::string& name : isByChip ? load.target.chips : probes) {
    boards.push_back(load.target);
    (isByChip ? boards.back().chip : boards.back().probe) = name;
  }
  RequireDistinct(boards);
  return boards;
}

std::string BoardName(const TargetOptions& target) {
  return target.chip.empty() ? target.probe : target.chip;
}

}  // namespace host::cli
