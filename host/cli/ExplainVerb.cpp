#include <fmt/format.h>
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <memory>

#include "host/cli/ExitCode.h"
#include "host/cli/Output.h"
#include "host/cli/Verbs.h"
#include "host/report/Explanation.h"

namespace host::cli {

namespace {

int ExplainText(const Options& options, const std::string& question) {
  const std::vector<Explanation> found = Explain(question);
  if (options.json) {
    Json list = Json::array();
    for (const Explanation& explanation : found)
      list.push_back({{"code", explanation.code < 0 ? Json(nullptr) : Json(explanation.code)},
                      {"text", explanation.text},
                      {"meaning", explanation.meaning},
                      {"remedy", explanation.remedy}});
    PrintJson(list);
  } else {
    for (const Explanation& explanation : found) {
      const std::string code =
          explanation.code < 0 ? "" : fmt::format("{} (0x{:02X}): ", explanation.code, explanation.code);
      fmt::print("{}{}\n  What it means: {}\n  What to do:    {}\n", code, explanation.text,
                 explanation.meaning, explanation.remedy);
    }
  }
  if (!found.empty()) return kDone;
  Complain(fmt::format("no explanation for \"{}\"", question));
  return kFailed;
}

}  // namespace

void AddExplain(CLI::App& program, Options& options) {
  auto question = std::make_shared<std::string>();
  CLI::App* verb =
      program.add_subcommand("explain", "Say what an error text or result code means and what to do");
  verb->add_option("text", *question, "A result code (132 or 0x84), or an error text or part of it")
      ->required()
      ->type_name("TEXT|CODE");
  AddJsonOption(*verb, options);
  verb->callback([&options, question] {
    options.run = [&options, question] { return ExplainText(options, *question); };
  });
}

}  // namespace host::cli
