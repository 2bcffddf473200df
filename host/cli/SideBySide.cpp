#include "host/cli/SideBySide.h"

#include <fmt/format.h>

#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <thread>

#include "host/cli/BoardLoad.h"
#include "host/cli/Boards.h"
#include "host/cli/Interrupt.h"
#include "host/cli/ReportFile.h"
#include "host/device/InputError.h"
#include "host/report/ProgressLines.h"

namespace host::cli {

namespace {

struct Board {
  std::string name;
  Output output;
  std::unique_ptr<BoardLoad> load;
};

const char* Word(ExitCode code) {
  switch (code) {
    case kDone: return "done";
    case kErrorsReported: return "done, but errors were reported";
    case kDiffers: return "differs";
    case kFailed:
    case kWrongInput: return "failed";
    case kInterrupted: return "interrupted";
  }
  return "";
}

std::string Named(const std::string& board, const std::string& text) {
  return board + ": " + text;
}

std::unique_ptr<BoardLoad> Open(const LoadOptions& load, const TargetOptions& target,
                                const std::vector<ImageFile>& images, Output& output) {
  try {
    return std::make_unique<BoardLoad>(load, target, images, output);
  } catch (const InputError& error) {
    throw InputError(Named(BoardName(target), error.what()));
  } catch (const std::exception& error) {
    throw std::runtime_error(Named(BoardName(target), error.what()));
  }
}

// A plan that is that of the board before is said once.
void Announce(const std::vector<std::unique_ptr<Board>>& boards, Output& output) {
  std::string said;
  for (const auto& board : boards) {
    const std::string plan = board->load->Plan();
    if (plan != said) {
      output.Say(plan);
      for (const std::string& warning : board->load->Warnings()) output.Complain("warning: " + warning);
      said = plan;
    }
    output.Say(board->load->Board());
  }
  (void)std::fflush(stdout);  // they say no more until all have ended
}

std::jthread Start(BoardLoad& load, std::size_t number, ProgressLines* lines) {
  const SignalsLeftToStarter signals;
  return std::jthread([&load, number, lines] {
    load.Work([lines, number](const LoadEvent& event) {
      if (lines != nullptr) lines->Take(number, event);
    });
    if (lines != nullptr) lines->End(number, Word(load.Code()));
  });
}

std::vector<Session*> Sessions(const std::vector<std::unique_ptr<Board>>& boards) {
  std::vector<Session*> sessions;
  sessions.reserve(boards.size());
  for (const auto& board : boards) sessions.push_back(&board->load->Session());
  return sessions;
}

// Returns when all have ended.
void Work(const std::vector<std::unique_ptr<Board>>& boards, ProgressLines* lines) {
  std::vector<std::jthread> threads;
  threads.reserve(boards.size());
  for (const auto& board : boards) threads.push_back(Start(*board->load, threads.size(), lines));
}

// Each board whole, then a line for each; returns the first of those that went worst.
const Board& Tell(const std::vector<std::unique_ptr<Board>>& boards, Output& output) {
  output.document["boards"] = Json::array();
  const Board* worst = boards.front().get();
  std::string list = "\nBoards\n";
  for (const auto& board : boards) {
    const BoardLoad& load = *board->load;
    output.Say(fmt::format("\n=== {} ===\n\n", board->name));
    board->output.Release();
    Json entry = {{"board", board->name},
                  {"exit_code", load.Code()},
                  {"error", load.Error().empty() ? Json(nullptr) : Json(load.Error())}};
    entry.update(board->output.document);
    entry.erase("schema");  // the whole document's
    output.document["boards"].push_back(std::move(entry));
    list += fmt::format("  {}: {}\n", board->name, Word(load.Code()));
    if (IsWorse(load.Code(), worst->load->Code())) worst = board.get();
  }
  output.Say(list);
  return *worst;
}

}  // namespace

int LoadSideBySide(const LoadOptions& load, const std::vector<TargetOptions>& targets,
                   const std::vector<ImageFile>& images, Output& output) {
  std::vector<std::unique_ptr<Board>> boards;
  std::vector<std::string> names;
  for (const TargetOptions& target : targets) {
    names.push_back(BoardName(target));
    boards.push_back(std::make_unique<Board>(Board{names.back(), output.ForBoard(names.back()), {}}));
    Board& board = *boards.back();
    try {
      board.load = Open(load, target, images, board.output);
    } catch (const std::exception&) {
      board.output.Release();
      throw;
    }
  }
  {
    // From the announcement on: whoever has read it may end what it says.
    const Interruptible interruptible(Sessions(boards));
    Announce(boards, output);
    const std::unique_ptr<ProgressLines> lines =
        load.noProgress || output.IsJson() ? nullptr : ProgressLines::For(stderr, names);
    Work(boards, lines.get());
  }
  const Board& worst = Tell(boards, output);
  const std::string& error = worst.load->Error();
  std::vector<BoardLoad*> loads;
  loads.reserve(boards.size());
  for (const auto& board : boards) loads.push_back(board->load.get());
  const ExitCode code = WriteReport(load, loads, worst.load->Code(), output);
  return output.Finish("load", code, error.empty() ? "" : Named(worst.name, error));
}

}  // namespace host::cli
