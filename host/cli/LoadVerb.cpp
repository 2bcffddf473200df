#include "host/cli/LoadVerb.h"

#include <optional>

#include "host/cli/BoardLoad.h"
#include "host/cli/Boards.h"
#include "host/cli/Interrupt.h"
#include "host/cli/Password.h"
#include "host/cli/ReportFile.h"
#include "host/cli/SideBySide.h"
#include "host/cli/Target.h"
#include "host/cli/Verb.h"
#include "host/cli/WatchedLoad.h"
#include "host/report/ProgressBar.h"

namespace host::cli {

namespace {

// Reads what the images' arguments name, after seeing to it that no output is one of them, and that there can
// be a report.
std::vector<ImageFile> ReadImages(const LoadOptions& load) {
  Files files = FilesOf(load.target);
  std::vector<ImageFile> images;
  for (const std::string& argument : load.images) {
    images.push_back(ReadImage(argument));
    files.Reads("image", images.back().name);
  }
  files.Writes("report", load.report);
  files.RequireDistinct();
  RequireReplaceable("report", load.report);
  return images;
}

int LoadOne(const LoadOptions& load, const std::vector<ImageFile>& images, Output& output) {
  BoardLoad board(load, load.target, images, output);
  {
    // From the announcement on: whoever has read it may end what it says.
    const Interruptible interruptible(board.Session());
    output.Say(board.Plan());
    output.Say(board.Board() + "\n");
    for (const std::string& warning : board.Warnings()) output.Complain("warning: " + warning);
    std::optional<ProgressBar> bar;
    if (!load.noProgress && !output.IsJson()) bar = ProgressBar::For(stderr);
    board.Work([&](const LoadEvent& event) {
      if (bar) bar->Take(event);
    });
  }
  const ExitCode code = WriteReport(load, {&board}, board.Code(), output);
  return output.Finish(load.verifies ? "verify" : "load", code, board.Error());
}

}  // namespace

void AddImageOptions(CLI::App& verb, LoadOptions& load) {
  verb.add_option("image", load.images, "ELF, Intel HEX, S-record, or a raw binary with its @ADDRESS")
      ->required()
      ->type_name("IMAGE[@ADDRESS]");
  AddTargetOptions(verb, load.target);
  verb.add_option("--report", load.report, "Write what was done and what came of it as one page of HTML")
      ->type_name("FILE");
  verb.add_flag("--no-progress", load.noProgress, "No progress bar, even on a terminal");
}

int RunLoad(const LoadOptions& load, Output& output) {
  if (load.watches) return LoadWatched(load, output);
  if (!NamesSeveral(load)) return LoadOne(load, ReadImages(load), output);
  std::vector<TargetOptions> boards = BoardsOf(load);
  const std::vector<ImageFile> images = ReadImages(load);
  const PasswordOptions password = AskedNow(load.target.password);
  for (TargetOptions& board : boards) board.password = password;
  return LoadSideBySide(load, boards, images, output);
}

void AddLoad(CLI::App& program, Job& chosen) {
  AddVerb<LoadOptions>(
      program, chosen, "load", "Program images into a chip and verify them",
      [](CLI::App& verb, LoadOptions& load) {
        load.target.takesSeveral = true;
        AddImageOptions(verb, load);
        verb.add_flag(
            "--all-probes", load.allProbes,
            "Load every CMSIS-DAP probe's board; several --probe or --chip load these side by side");
        verb.add_flag("--strict", load.isStrict, "Refuse the load when there is anything to warn of");
        verb.add_flag("--if-different", load.ifDifferent,
                      "Compare first, and erase and program nothing that is on the chip already");
        verb.add_flag("--watch", load.watches,
                      "Load again, as with --if-different, whenever an image has been written anew");
        verb.add_flag("--allow-outside", load.allowOutside,
                      "Hand on bytes that lie in no memory of the device, as RAM data");
        verb.add_flag("--dry-run", load.isDryRun,
                      "Do all of it to a copy of the chip and say what would change");
      },
      RunLoad);
}

}  // namespace host::cli
